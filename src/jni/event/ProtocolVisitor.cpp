// The encoder's beginnings: its one object, the records that open a packet or a connection, dumps.
// One function per kind of record, one line per field, stand in ProtocolRequests.cpp,
// ProtocolResources.cpp, ProtocolPortal.cpp and ProtocolVm.cpp; docs/WIRE.md draws the same
// records.
//
// The functions that write records carry no trace line: they run once per event in the agents'
// innermost loop, and the event agent traces each packet.
#include "event/ProtocolVisitor.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <mutex>
#include <string>

#include "event/RecordParts.h"
#include "foundation/Globals.h"
#include "foundation/Identity.h"
#include "foundation/Log.h"
#include "foundation/Platform.h"

using namespace recordparts;

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

}  // namespace

bool recordparts::refuseNoRecord(const Event& event, int action) {
    static std::atomic<bool> told[WS_FAULT + 1];
    if (event.type_ < 0 || event.type_ > WS_FAULT) return false;
    if (!told[event.type_].exchange(true, std::memory_order_relaxed))
        logMessage(msg::kNoRecordForPhase, event.type_, event.subType_, action);
    return false;
}

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
    WireWriter out(buf);
    out.putByte(DC2PS_HEADER_RECORD);
    out.putInt(static_cast<std::uint32_t>(packet_record_count));
    finish(out);
}

void ProtocolVisitor::addInitRecord(char** buf) {
    VEL_TRACE("addInitRecord(char**)");
    std::uint32_t sec = 0;
    std::uint32_t usec = 0;
    getCurrentTime(&sec, &usec);
    WireWriter out(buf);
    out.putInt(2000);
    out.putByte(100);
    out.putByte(getPlatformId());
    out.putByte(1);
    out.putLong(std::int64_t{sec} * 1000 + usec / 1000);  // ms
    finish(out);
}

void ProtocolVisitor::addJ2EEInitRecord(char** buf, JNIEnv* env) {
    VEL_TRACE("addJ2EEInitRecord(char**, JNIEnv*)");
    int major = 0;
    int minor = 0;
    int micro = 0;
    std::sscanf(Identity::appServerVersion(), "%d.%d.%d", &major, &minor, &micro);
    char fullName[256];
    const bool named = getFullAppServerName(env, fullName, sizeof fullName);

    WireWriter out(buf);
    out.putByte(101);
    out.putByte(200);
    out.putByte(major);
    out.putByte(minor);
    out.putByte(micro);
    out.writeString(Identity::componentId());
    out.writeString("<NO CLUSTER NAME>");
    out.writeString(Identity::nodeName());
    // Intended: the plain server name also where a profile is set; the server knows it under this
    // one.
    out.writeString(named ? fullName : Identity::appServerName());
    out.putInt(static_cast<std::uint32_t>(Identity::adminPort()));
    finish(out);
}

void ProtocolVisitor::addStandaloneInitRecord(char** buf) {
    VEL_TRACE("addStandaloneInitRecord(char**)");
    WireWriter out(buf);
    out.putByte(107);
    out.putByte(204);
    out.putByte(1);
    out.putByte(1);
    out.putByte(1);
    out.writeString(Identity::componentId());
    // Intended: server before node, the other way round than for an application server.
    out.writeString(Identity::appServerName());
    out.writeString(Identity::nodeName());
    out.putInt(static_cast<std::uint32_t>(Identity::adminPort()));
    finish(out);
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
