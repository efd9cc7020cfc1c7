#include "transport/NetworkAgentData.h"

#include <cstring>
#include <new>

#include "foundation/Log.h"

NetworkAgentData::NetworkAgentData(const char* data, int size, PacketInfo info)
    : VeloraBase("NetworkAgentData"), size_(size), info_(std::move(info)) {
    VEL_TRACE("NetworkAgentData(const char*, int)");
    if (size <= 0) return;
    record_.reset(new (std::nothrow) char[static_cast<std::size_t>(size)]);
    if (record_ == nullptr) {
        _logError(__FILE_NAME__, __LINE__, "new() failure - out of memory");
        return;
    }
    std::memcpy(record_.get(), data, static_cast<std::size_t>(size));
}

NetworkAgentData::~NetworkAgentData() = default;
