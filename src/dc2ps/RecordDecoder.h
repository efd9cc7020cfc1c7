// Decodes one record at the front of bytes that nobody has checked.
//
// No length, count or type is believed: each is checked against what is there and against the
// limits before it is used. Nothing is allocated; a record's strings point into the given bytes.
// Threads: one decoder per stream, used by one thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "dc2ps/Records.h"

namespace dc2ps {

struct Limits {
    // The longest record, bytes; anything longer is garbage. Only class records and MQI records can
    // come near: a class with all 65535 methods that the VM allows fits with names of ordinary
    // length.
    std::size_t maxRecordBytes = 8u << 20;
    // The most records that a packet header may announce: what fits into the largest packet that an
    // agent can be configured for, 512 MB of the shortest record.
    std::int32_t maxPacketRecords = (512 << 20) / 5;
};

enum class Decoded : std::uint8_t {
    ok,        // a record was read; size() says how many bytes it took
    needMore,  // the bytes end inside the record
    garbage    // what stands here is no record; fault() says why
};

class FieldReader;

class RecordDecoder {
public:
    struct Fault {
        std::size_t offset = 0;  // where in the given bytes
        std::string reason;
    };

    explicit RecordDecoder(const Limits& limits = {}) : limits_(limits) {}

    // A record inside a packet. After needMore the next call must bring the same bytes and more.
    [[nodiscard]] Decoded decode(Bytes untrusted, Record& out);
    // What stands at the front of a packet: a PacketHeader or an AgentInit.
    [[nodiscard]] Decoded decodeOpening(Bytes untrusted, Record& out);
    // What follows an AgentInit.
    [[nodiscard]] Decoded decodeServerInit(Bytes untrusted, Record& out);

    std::size_t size() const { return size_; }
    const Fault& fault() const { return fault_; }

private:
    // How far a class-load record that arrives in pieces has been looked at, so that many small
    // pieces do not make the same methods be walked over again and again.
    struct ClassScan {
        std::size_t position = 0;  // where the next method starts; 0: no scan under way
        std::int32_t methodsLeft = 0;
    };

    template <class Layout>
    Decoded whole(Bytes untrusted, Record& out);
    Decoded packetHeader(Bytes untrusted, Record& out);
    // The elements behind the fields of three kinds. False: garbage() has been called.
    bool takeElements(FieldReader& in, Mqi& r);
    bool takeElements(FieldReader& in, ClassLoad& r);
    bool takeElements(FieldReader& in, ClassUnload& r);
    bool credible(const FieldReader& in, std::int32_t count, std::size_t bytesEach,
                  const char* elements);
    Decoded garbage(std::size_t offset, std::string reason);
    Decoded finish(FieldReader& in, Bytes untrusted);
    bool overLimit(const FieldReader& in) const;

    Limits limits_;
    std::size_t size_ = 0;
    Fault fault_;
    ClassScan scan_;
};

}  // namespace dc2ps
