// One struct per record layout, as a reader sees it after decoding.
//
// Ownership and lifetime: every string_view and span points into the buffer that was decoded; it is
// valid only during the call that handed the record out. Copy what you keep.
// The bytes of the strings are as they came from the wire: modified UTF-8 from an untrusted peer.
// Put them through Text.h before showing them to anybody.
//
// Each struct has a static fields(record, f) that calls f("name", field) for the fields of its
// phase in the order of the wire. Writer, decoder, printer and whoever copies or shows a record go
// by it, so that a field is named in one place only. RecordRows.h lists which type has which
// layout.
#pragma once

#include <type_traits>
#include <variant>

#include "dc2ps/CallRecords.h"
#include "dc2ps/PacketRecords.h"
#include "dc2ps/PlainRecords.h"
#include "dc2ps/RequestRecords.h"

namespace dc2ps {

// What opens a packet or a connection does not stand inside a packet.
template <class Layout>
constexpr bool kInPacket =
    !std::is_same_v<Layout, NoLayout> && !std::is_same_v<Layout, PacketHeader> &&
    !std::is_same_v<Layout, AgentInit> && !std::is_same_v<Layout, ServerInit>;

// A variant of the given layouts, each once.
template <class Variant, class... Layouts>
struct EachOnce {
    using Type = Variant;
};
template <class... Taken, class Next, class... Rest>
struct EachOnce<std::variant<Taken...>, Next, Rest...>
    : std::conditional_t<(std::is_same_v<Next, Taken> || ... || std::is_same_v<Next, NoLayout>),
                         EachOnce<std::variant<Taken...>, Rest...>,
                         EachOnce<std::variant<Taken..., Next>, Rest...>> {};

// Any record: one alternative for each layout of the rows.
using Record = EachOnce<std::variant<>
#define DC2PS_LAYOUT(name, number, shown, layout, phase, span) , layout
                            DC2PS_RECORD_ROWS(DC2PS_LAYOUT)
#undef DC2PS_LAYOUT
                        >::Type;

// The common part of a unit of work; null for every other record.
inline const Timed* asTimed(const Record& record) {
    return std::visit(
        [](const auto& r) -> const Timed* {
            if constexpr (std::is_base_of_v<Timed, std::decay_t<decltype(r)>>) return &r;
            return nullptr;
        },
        record);
}

inline RecordType typeOf(const Record& record) {
    return std::visit([](const auto& r) { return r.type; }, record);
}

}  // namespace dc2ps
