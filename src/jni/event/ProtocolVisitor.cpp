// The encoder's one object, the records that open a packet or a connection, dumps. The records of
// events stand in EventRecords.cpp.
#include "event/ProtocolVisitor.h"

#include <algorithm>
#include <cstdio>
#include <mutex>
#include <string>

#include "dc2ps/RecordWriter.h"
#include "foundation/Globals.h"
#include "foundation/Identity.h"
#include "foundation/Log.h"
#include "foundation/Messages.h"
#include "foundation/Platform.h"

using dc2ps::RecordType;
using dc2ps::text;

namespace {

std::mutex instanceLock;  // guards making and deleting the singleton

// "[<1><2>]", the bytes of a dump, behind a number of at least three digits.
std::string dumpLine(int number, const char* bytes, int length) {
    char part[16];
    std::snprintf(part, sizeof part, "%03d [", number);
    std::string line = part;
    for (int i = 0; i < length; ++i) {
        std::snprintf(part, sizeof part, "<%d>", static_cast<unsigned char>(bytes[i]));
        line += part;
    }
    return line + "]\n";
}

template <class Layout>
void write(const Layout& record, char** buf) {
    dc2ps::FieldWriter out(*buf);
    dc2ps::putRecord(out, record);
    *buf = out.at();
}

}  // namespace

ProtocolVisitor::ProtocolVisitor() : VeloraBase("ProtocolVisitor") {
}

ProtocolVisitor::~ProtocolVisitor() = default;

ProtocolVisitor* ProtocolVisitor::getInstance() {
    VEL_TRACE("ProtocolVisitor::getInstance()");
    const std::lock_guard hold(instanceLock);
    if (visitor_.load(std::memory_order_acquire) == nullptr)
        visitor_.store(new ProtocolVisitor, std::memory_order_release);
    return visitor_.load(std::memory_order_acquire);
}

void ProtocolVisitor::destroy() {
    VEL_TRACE("ProtocolVisitor::destroy()");
    const std::lock_guard hold(instanceLock);
    delete visitor_.exchange(nullptr, std::memory_order_acq_rel);
}

void ProtocolVisitor::start() {
    VEL_TRACE("ProtocolVisitor::start()");
}

void ProtocolVisitor::stop() {
    VEL_TRACE("ProtocolVisitor::stop()");
}

void ProtocolVisitor::addPacketHeaderRecord(int packet_record_count, char** buf) {
    write(dc2ps::PacketHeader{RecordType::header, packet_record_count}, buf);
}

void ProtocolVisitor::addInitRecord(char** buf) {
    VEL_TRACE("addInitRecord(char**)");
    std::uint32_t sec = 0;
    std::uint32_t usec = 0;
    getCurrentTime(&sec, &usec);
    dc2ps::AgentInit r;
    r.type = RecordType::agentInit;
    r.version = 2000;
    r.platform = static_cast<std::uint8_t>(getPlatformId());
    r.format = 1;
    r.wallMillis = std::int64_t{sec} * 1000 + usec / 1000;
    write(r, buf);
}

void ProtocolVisitor::addJ2EEInitRecord(char** buf, JNIEnv* env) {
    VEL_TRACE("addJ2EEInitRecord(char**, JNIEnv*)");
    int major = 0;
    int minor = 0;
    int micro = 0;
    std::sscanf(Identity::appServerVersion(), "%d.%d.%d", &major, &minor, &micro);
    char fullName[256];
    const bool named = getFullAppServerName(env, fullName, sizeof fullName);

    dc2ps::ServerInit r;
    r.type = RecordType::serverInit;
    r.kind = 200;
    r.version = {static_cast<std::uint8_t>(major), static_cast<std::uint8_t>(minor),
                 static_cast<std::uint8_t>(micro)};
    r.componentId = text(Identity::componentId());
    r.cluster = "<NO CLUSTER NAME>";
    r.node = text(Identity::nodeName());
    // Intended: the plain server name also where a profile is set; the server knows it under this
    // one.
    r.server = text(named ? fullName : Identity::appServerName());
    r.adminPort = Identity::adminPort();
    write(r, buf);
}

void ProtocolVisitor::addStandaloneInitRecord(char** buf) {
    VEL_TRACE("addStandaloneInitRecord(char**)");
    dc2ps::ServerInit r;
    r.type = RecordType::standaloneInit;
    r.kind = 204;
    r.version = {1, 1, 1};
    r.componentId = text(Identity::componentId());
    r.server = text(Identity::appServerName());
    r.node = text(Identity::nodeName());
    r.adminPort = Identity::adminPort();
    write(r, buf);
}

int ProtocolVisitor::getRecordType(EventType type, EventSubType subType) {
    const bool start = subType == START;
    if (type == IIOP_CLIENT)
        return start ? DC2PS_IIOP_CLIENT_START_RECORD : DC2PS_IIOP_CLIENT_END_RECORD;
    if (type == IIOP_SERVER)
        return start ? DC2PS_IIOP_SERVER_START_RECORD : DC2PS_IIOP_SERVER_END_RECORD;
    return -1;
}

void ProtocolVisitor::printRecord(const char* record, int length) {
    if (!traceOn(kDebugMax) || record == nullptr) return;
    VEL_DEBUG_MAX("printRecord", "%s", dumpLine(length, record, length).c_str());
}

void ProtocolVisitor::dumpBuffer(const char* buffer, int length) {
    if (!traceOn(kDebugMax) || buffer == nullptr) return;
    constexpr int kPerLine = 16;
    for (int offset = 0; offset < length; offset += kPerLine) {
        const int bytes = std::min(kPerLine, length - offset);
        VEL_DEBUG_MAX("dumpBuffer", "%s", dumpLine(offset, buffer + offset, bytes).c_str());
    }
}
