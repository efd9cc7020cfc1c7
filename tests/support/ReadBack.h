// An event's record as a reader sees it: encoded into exactly the room that the event asks for, and
// decoded by the server's decoder.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "dc2ps/RecordDecoder.h"
#include "dc2ps/RecordPrinter.h"
#include "event/Event.h"

namespace readback {

// The record's bytes; empty when the event refused. Asan sees the end of the room.
inline std::string bytesOf(Event& event) {
    std::vector<char> room(event.encodedSize());
    char* at = room.data();
    if (!event.addToBuffer(&at)) return at == room.data() ? "" : "refused, but moved the position";
    return {room.data(), at};
}

// What is printed of a whole record; the reason when there is none.
inline std::string lineOf(const std::string& bytes) {
    const std::vector<std::uint8_t> exact(bytes.begin(), bytes.end());
    dc2ps::RecordDecoder decoder;
    dc2ps::Record record;
    switch (decoder.decode(exact, record)) {
        case dc2ps::Decoded::garbage:
            return decoder.fault().reason;
        case dc2ps::Decoded::needMore:
            return "incomplete";
        case dc2ps::Decoded::ok:
            break;
    }
    if (decoder.size() != exact.size()) return "bytes behind the record";
    std::string line;
    dc2ps::appendRecord(line, record);
    return line;
}

}  // namespace readback
