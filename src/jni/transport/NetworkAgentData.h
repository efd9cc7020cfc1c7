// One encoded packet on its way to the server: an owned copy of its bytes.
#pragma once

#include <cstdint>
#include <memory>
#include <utility>

#include "foundation/VeloraBase.h"
#include "transport/RecordEnds.h"

// What the sender knows about a packet beyond its bytes.
struct PacketInfo {
    unsigned long connection = 0;  // the connection it was built for; 0: whichever there is
    bool init = false;             // the initial records, which open a connection
    RecordEnds ends;               // of the records that account for captured events
};

class NetworkAgentData : public virtual VeloraBase {
public:
    // Copies size bytes; without memory the record stays null (logged).
    NetworkAgentData(const char* data, int size, PacketInfo info = {});
    ~NetworkAgentData() override;
    NetworkAgentData(const NetworkAgentData&) = delete;
    NetworkAgentData& operator=(const NetworkAgentData&) = delete;

    std::int64_t getSize() const { return size_; }
    char* getRecord() const { return record_.get(); }  // not terminated
    const PacketInfo& getInfo() const { return info_; }
    RecordEnds takeEnds() { return std::move(info_.ends); }

private:
    std::int64_t size_;               // bytes
    std::unique_ptr<char[]> record_;  // null: no memory
    PacketInfo info_;
};
