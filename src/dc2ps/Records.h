// One struct per record layout, as a reader sees it after decoding.
//
// Ownership and lifetime: every string_view and span points into the buffer that was decoded; it is
// valid only during the call that handed the record out. Copy what you keep.
// The bytes of the strings are as they came from the wire: modified UTF-8 from an untrusted peer.
// Put them through Text.h before showing them to anybody.
//
// Each struct has a static fields(record, f) that calls f("name", field) for the fields of its
// phase in the order of the wire. Decoder, printer and whoever copies or shows a record go by it,
// so that a field is named in one place only.
#pragma once

#include <type_traits>
#include <variant>

#include "dc2ps/CallRecords.h"
#include "dc2ps/PacketRecords.h"
#include "dc2ps/PlainRecords.h"
#include "dc2ps/RequestRecords.h"

namespace dc2ps {

using Record =
    std::variant<ServletRequest, NamedRequest, GpsRequest, PortalRequest, WebServiceRequest,
                 IiopRequest, SqlCall, JndiCall, MailCall, JcaCall, JmsCall, JdoCall, MqCall,
                 GpsMqCall, WsFault, PortalStep, PortalGateway, HeapAllocation, LockStep,
                 LockContention, MethodStep, Gc, Dropped, Trace, Exception, Sampling, Ctg, Mqi,
                 PortalAverage, PortalCredentialVault, PortalContentAccess, PortalMethodName,
                 PsStatus, ClassLoad, ClassUnload, PacketHeader, AgentInit, ServerInit>;

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
