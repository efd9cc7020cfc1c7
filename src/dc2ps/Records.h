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

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <variant>

#include "dc2ps/RecordType.h"

namespace dc2ps {

using Bytes = std::span<const std::uint8_t>;

enum class Phase : std::uint8_t { start, end, error };

// Wall-clock time of capture. The microseconds are untrusted and may exceed 999999.
struct WallTime {
    std::uint32_t seconds = 0;       // since 1970
    std::uint32_t microseconds = 0;  // within the second
    std::int64_t micros() const { return std::int64_t{seconds} * 1000000 + microseconds; }
};

// What the records of a unit of work have in common: byte type, int thread, byte depth, int
// seconds, int microseconds, long CPU time, then the fields of the phase, and the byte probe level.
struct Timed {
    RecordType type{};
    Phase phase = Phase::start;
    std::uint8_t depth = 0;  // nesting level on the thread; the agent's counter cut to 8 bits
    std::uint8_t probeLevel = 0;
    std::uint32_t threadId = 0;
    WallTime time;
    std::int64_t cpuTime = 0;  // CPU time of the thread, ns
};

// Bytes that are not text.
struct RawBytes {
    std::string_view bytes;
};

// A correlation token: exactly four bytes, the most significant first.
struct Token : RawBytes {};

// ---- requests
// ------------------------------------------------------------------------------------

// 4, 5, 50. An error ends the request like an end; neither carries a field.
struct ServletRequest : Timed {
    std::uint8_t named = 0;  // 0: both names are empty because they equal the url
    std::string_view name, application, url, user;
    template <class R, class F>
    static void fields(R& r, F&& f) {
        if (r.phase != Phase::start) return;
        f("named", r.named);
        f("name", r.name);
        f("application", r.application);
        f("url", r.url);
        f("user", r.user);
    }
};

// EJB 6, 7; DoVerbFor 112, 113; PollForEvents 114, 115: as a servlet request, without a user.
struct NamedRequest : Timed {
    std::uint8_t named = 0;
    std::string_view name, application, url;
    template <class R, class F>
    static void fields(R& r, F&& f) {
        if (r.phase != Phase::start) return;
        f("named", r.named);
        f("name", r.name);
        f("application", r.application);
        f("url", r.url);
    }
};

// 51 to 54. The start of either pair carries the token.
struct GpsRequest : Timed {
    Token token;
    template <class R, class F>
    static void fields(R& r, F&& f) {
        if (r.phase == Phase::start) f("token", r.token);
    }
};

// Portal page 65, 66 and portlet 67, 68.
struct PortalRequest : Timed {
    std::string_view name, application, url, user;
    template <class R, class F>
    static void fields(R& r, F&& f) {
        if (r.phase != Phase::start) return;
        f("name", r.name);
        f("application", r.application);
        f("url", r.url);
        f("user", r.user);
    }
};

// Web service client 199, 200 and provider 201, 202. The application comes first.
struct WebServiceRequest : Timed {
    std::string_view application, name, url;
    template <class R, class F>
    static void fields(R& r, F&& f) {
        if (r.phase != Phase::start) return;
        f("application", r.application);
        f("name", r.name);
        f("url", r.url);
    }
};

// 150 to 153. methodMapKey is not 0 when the agent sends a method name only once per key; the
// name is empty on later records then.
struct IiopRequest : Timed {
    std::string_view className;
    std::int32_t methodMapKey = 0;
    std::string_view methodName;
    template <class R, class F>
    static void fields(R& r, F&& f) {
        if (r.phase != Phase::start) return;
        f("class", r.className);
        f("methodMapKey", r.methodMapKey);
        f("method", r.methodName);
    }
};

// ---- calls inside a request
// ----------------------------------------------------------------------

// 9, 10; the probe level stands before the fields.
struct SqlCall : Timed {
    std::string_view dataSource, sql;
    template <class R, class F>
    static void fields(R& r, F&& f) {
        if (r.phase != Phase::start) return;
        f("dataSource", r.dataSource);
        f("sql", r.sql);
    }
};

// 33, 34; the probe level stands before the fields.
struct JndiCall : Timed {
    std::string_view providerUrl, lookupName;
    template <class R, class F>
    static void fields(R& r, F&& f) {
        if (r.phase != Phase::start) return;
        f("providerUrl", r.providerUrl);
        f("lookupName", r.lookupName);
    }
};

// 35, 36; the probe level stands before the fields.
struct MailCall : Timed {
    std::string_view serverUrl, subject;
    template <class R, class F>
    static void fields(R& r, F&& f) {
        if (r.phase != Phase::start) return;
        f("serverUrl", r.serverUrl);
        f("subject", r.subject);
    }
};

// 37, 38
struct JcaCall : Timed {
    std::string_view eisName;
    template <class R, class F>
    static void fields(R& r, F&& f) {
        if (r.phase == Phase::start) f("eisName", r.eisName);
    }
};

// 25 to 32. Only receive and browse carry a selector.
struct JmsCall : Timed {
    std::string_view server, destination, selector;
    bool hasSelector() const { return type <= RecordType::jmsBrowseEnd; }
    template <class R, class F>
    static void fields(R& r, F&& f) {
        if (r.phase != Phase::start) return;
        f("server", r.server);
        f("destination", r.destination);
        if (r.hasSelector()) f("selector", r.selector);
    }
};

// 147, 148
struct JdoCall : Timed {
    std::string_view className, methodName, arguments;
    template <class R, class F>
    static void fields(R& r, F&& f) {
        if (r.phase != Phase::start) return;
        f("class", r.className);
        f("method", r.methodName);
        f("arguments", r.arguments);
    }
};

// 110, 111. The end carries the action again, without the names.
struct MqCall : Timed {
    std::string_view queue, queueManager;
    std::uint8_t action = 0;
    template <class R, class F>
    static void fields(R& r, F&& f) {
        if (r.phase == Phase::start) {
            f("queue", r.queue);
            f("queueManager", r.queueManager);
        }
        f("action", r.action);
    }
};

// Put 55, 56 and get 57, 58: a queue operation that carries a token of any length along.
struct GpsMqCall : Timed {
    std::string_view queue;
    RawBytes token;
    std::uint8_t action = 0;
    template <class R, class F>
    static void fields(R& r, F&& f) {
        if (r.phase == Phase::start) {
            f("queue", r.queue);
            f("token", r.token);
        }
        f("action", r.action);
    }
};

// 203, 204
struct WsFault : Timed {
    std::string_view application, faultCode, faultText;
    template <class R, class F>
    static void fields(R& r, F&& f) {
        if (r.phase != Phase::start) return;
        f("application", r.application);
        f("faultCode", r.faultCode);
        f("faultText", r.faultText);
    }
};

// 130 to 139, 142, 143: a step of a portal's work, named by a PortalMethodName record.
struct PortalStep : Timed {
    std::int8_t methodId = 0;
    template <class R, class F>
    static void fields(R& r, F&& f) {
        if (r.phase == Phase::start) f("methodId", r.methodId);
    }
};

// 140, 141: here the end carries the name.
struct PortalGateway : Timed {
    std::string_view pageName;
    template <class R, class F>
    static void fields(R& r, F&& f) {
        if (r.phase != Phase::start) f("pageName", r.pageName);
    }
};

// 124, 125
struct HeapAllocation : Timed {
    std::uint32_t methodId = 0;
    std::string_view className;
    std::int32_t line = 0;
    template <class R, class F>
    static void fields(R& r, F&& f) {
        if (r.phase != Phase::start) return;
        f("methodId", r.methodId);
        f("class", r.className);
        f("line", r.line);
    }
};

// Acquisition 118, 119 and release 122, 123.
struct LockStep : Timed {
    std::uint32_t methodId = 0;
    std::string_view className;
    template <class R, class F>
    static void fields(R& r, F&& f) {
        if (r.phase != Phase::start) return;
        f("methodId", r.methodId);
        f("class", r.className);
    }
};

// 120, 121: a thread that waits, and who holds what it waits for.
struct LockContention : Timed {
    std::uint32_t methodId = 0;
    std::string_view className;
    std::int8_t ownerType = 0;  // what kind of request the owner works on
    std::string_view ownerName, ownerApplication;
    std::uint32_t ownerMethodId = 0;
    template <class R, class F>
    static void fields(R& r, F&& f) {
        if (r.phase != Phase::start) return;
        f("methodId", r.methodId);
        f("class", r.className);
        f("ownerType", r.ownerType);
        f("ownerName", r.ownerName);
        f("ownerApplication", r.ownerApplication);
        f("ownerMethodId", r.ownerMethodId);
    }
};

// ---- records without the common prefix
// -----------------------------------------------------------

// 2, 3: no depth and no probe level.
struct MethodStep {
    RecordType type{};
    Phase phase = Phase::start;
    std::uint32_t threadId = 0;
    std::uint32_t methodId = 0;
    WallTime time;
    std::int64_t cpuTime = 0;  // ns
    template <class R, class F>
    static void fields(R& r, F&& f) {
        f("thread", r.threadId);
        f("methodId", r.methodId);
        f("time", r.time);
        f("cpuTime", r.cpuTime);
    }
};

// 13, 14: only the end has figures.
struct Gc {
    RecordType type{};
    Phase phase = Phase::start;
    std::uint32_t threadId = 0;
    WallTime time;
    std::int64_t usedObjects = 0;  // -1: the VM does not tell
    std::int64_t usedSpace = 0;    // bytes
    std::int64_t totalSpace = 0;   // bytes
    template <class R, class F>
    static void fields(R& r, F&& f) {
        f("thread", r.threadId);
        f("time", r.time);
        if (r.phase == Phase::start) return;
        f("usedObjects", r.usedObjects);
        f("usedSpace", r.usedSpace);
        f("totalSpace", r.totalSpace);
    }
};

// 11: how many events of a thread never got a record. "Requests" is everything but methods and SQL.
struct Dropped {
    RecordType type{};
    std::uint32_t threadId = 0;
    std::int32_t requestStarts = 0, requestEnds = 0;
    std::int32_t methodStarts = 0, methodEnds = 0;
    std::int32_t sqlStarts = 0, sqlEnds = 0;
    template <class R, class F>
    static void fields(R& r, F&& f) {
        f("thread", r.threadId);
        f("requestStarts", r.requestStarts);
        f("requestEnds", r.requestEnds);
        f("methodStarts", r.methodStarts);
        f("methodEnds", r.methodEnds);
        f("sqlStarts", r.sqlStarts);
        f("sqlEnds", r.sqlEnds);
    }
};

// 8
struct Trace {
    RecordType type{};
    WallTime time;
    std::string_view name;
    std::uint8_t probeLevel = 0;
    template <class R, class F>
    static void fields(R& r, F&& f) {
        f("time", r.time);
        f("name", r.name);
        f("probeLevel", r.probeLevel);
    }
};

// 45
struct Exception {
    RecordType type{};
    std::string_view exception, className, methodName, stackTrace;
    template <class R, class F>
    static void fields(R& r, F&& f) {
        f("exception", r.exception);
        f("class", r.className);
        f("method", r.methodName);
        f("stackTrace", r.stackTrace);
    }
};

// 39
struct Sampling {
    RecordType type{};
    std::array<std::int32_t, 4> rates{};
    std::uint8_t useDefault = 0;
    template <class R, class F>
    static void fields(R& r, F&& f) {
        f("rate0", r.rates[0]);
        f("rate1", r.rates[1]);
        f("rate2", r.rates[2]);
        f("rate3", r.rates[3]);
        f("useDefault", r.useDefault);
    }
};

// 40
struct Ctg {
    RecordType type{};
    std::string_view gateway, server, program;
    std::int64_t snapshotTime = 0;
    std::int32_t count = 0;
    std::int64_t averageTime = 0;
    template <class R, class F>
    static void fields(R& r, F&& f) {
        f("gateway", r.gateway);
        f("ctgServer", r.server);
        f("program", r.program);
        f("snapshotTime", r.snapshotTime);
        f("count", r.count);
        f("averageTime", r.averageTime);
    }
};

// 41
struct Mqi {
    static constexpr std::size_t kElementBytes = 1 + 4 + 8;  // byte type, int count, long average
    struct Element {
        std::int8_t callType = 0;
        std::int32_t count = 0;
        std::int64_t averageTime = 0;
    };
    RecordType type{};
    std::string_view queueManager, queue;
    std::int64_t snapshotTime = 0;
    std::int32_t elementCount = 0;  // checked: not negative, and elements holds as many
    Bytes elements;
    Element element(std::size_t index) const;
    template <class R, class F>
    static void fields(R& r, F&& f) {
        f("queueManager", r.queueManager);
        f("queue", r.queue);
        f("snapshotTime", r.snapshotTime);
        f("elementCount", r.elementCount);
    }
};

// 46, 47, 48, 61, 62: how often, and how long on average.
struct PortalAverage {
    RecordType type{};
    std::int32_t count = 0;
    std::int64_t averageTime = 0;
    template <class R, class F>
    static void fields(R& r, F&& f) {
        f("count", r.count);
        f("averageTime", r.averageTime);
    }
};

struct CountAndAverage {
    std::int32_t count = 0;
    std::int64_t averageTime = 0;
};

// 63
struct PortalCredentialVault {
    RecordType type{};
    CountAndAverage getCredential, setBinary, setUserPassword, createSlot, deleteSlot;
    template <class R, class F>
    static void fields(R& r, F&& f) {
        f("getCredential", r.getCredential);
        f("setCredentialBinary", r.setBinary);
        f("setCredentialUserPassword", r.setUserPassword);
        f("createSlot", r.createSlot);
        f("deleteSlot", r.deleteSlot);
    }
};

// 64
struct PortalContentAccess {
    RecordType type{};
    CountAndAverage getInputStream, getMarkup, getUrl, include;
    template <class R, class F>
    static void fields(R& r, F&& f) {
        f("getInputStream", r.getInputStream);
        f("getMarkup", r.getMarkup);
        f("getURL", r.getUrl);
        f("include", r.include);
    }
};

// 146: what a PortalStep's methodId means on this connection.
struct PortalMethodName {
    RecordType type{};
    std::int8_t methodId = 0;
    std::string_view methodName;
    template <class R, class F>
    static void fields(R& r, F&& f) {
        f("methodId", r.methodId);
        f("method", r.methodName);
    }
};

// 44
struct PsStatus {
    RecordType type{};
    std::string_view status;
    template <class R, class F>
    static void fields(R& r, F&& f) {
        f("status", r.status);
    }
};

// 1
struct ClassLoad {
    static constexpr std::size_t kMinMethodBytes = 4 + 2 + 2;  // int id, two empty strings
    struct Method {
        std::uint32_t methodId = 0;
        std::string_view name, signature;
    };
    RecordType type{};
    std::uint32_t sequence = 0;  // order of loading; the same in both records of a class
    std::string_view className;
    std::int32_t methodCount = 0;  // checked: not negative, and methods holds as many
    Bytes methods;
    // Calls visit(const Method&) for each method, in the order of the class.
    template <class Visit>
    void forEachMethod(Visit&& visit) const {
        std::size_t at = 0;
        for (std::int32_t i = 0; i < methodCount; ++i) visit(methodAt(at));
    }
    template <class R, class F>
    static void fields(R& r, F&& f) {
        f("sequence", r.sequence);
        f("class", r.className);
        f("methodCount", r.methodCount);
    }

private:
    Method methodAt(std::size_t& at) const;  // moves at past the method
};

// 12: the class is named by its id here.
struct ClassUnload {
    RecordType type{};
    std::uint32_t sequence = 0;  // order of loading; the same in both records of a class
    std::uint32_t classId = 0;
    std::int32_t methodCount = 0;  // checked: not negative, and methodIds holds as many
    Bytes methodIds;               // four bytes each
    std::uint32_t methodId(std::size_t index) const;
    template <class R, class F>
    static void fields(R& r, F&& f) {
        f("sequence", r.sequence);
        f("classId", r.classId);
        f("methodCount", r.methodCount);
    }
};

// ---- packet framing
// ------------------------------------------------------------------------------

// 0: opens every packet but an init packet; as many records follow.
struct PacketHeader {
    RecordType type{};
    std::int32_t recordCount = 0;
    template <class R, class F>
    static void fields(R& r, F&& f) {
        f("recordCount", r.recordCount);
    }
};

// The first record of an init packet: int 2000 stands before its type byte 100.
struct AgentInit {
    RecordType type{};
    std::int32_t version = 0;
    std::uint8_t platform = 0;
    std::uint8_t format = 0;      // always 1
    std::int64_t wallMillis = 0;  // the agent's clock, ms since 1970
    template <class R, class F>
    static void fields(R& r, F&& f) {
        f("version", r.version);
        f("platform", r.platform);
        f("format", r.format);
        f("wallMillis", r.wallMillis);
    }
};

// The second record of an init packet: 101 from an application server, 107 from any other VM. The
// latter has no cluster, and names the server before the node.
struct ServerInit {
    RecordType type{};
    std::uint8_t kind = 0;  // 200 or 204
    std::array<std::uint8_t, 3> version{};
    std::string_view componentId, cluster, node, server;
    std::int32_t adminPort = 0;
    template <class R, class F>
    static void fields(R& r, F&& f) {
        f("kind", r.kind);
        f("major", r.version[0]);
        f("minor", r.version[1]);
        f("micro", r.version[2]);
        f("componentId", r.componentId);
        if (r.type == RecordType::serverInit) {
            f("cluster", r.cluster);
            f("node", r.node);
            f("server", r.server);
        } else {
            f("server", r.server);
            f("node", r.node);
        }
        f("adminPort", r.adminPort);
    }
};

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
