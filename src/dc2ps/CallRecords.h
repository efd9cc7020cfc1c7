// Units of work inside a request: calls, a portal's steps, allocations, locks. Included by
// Records.h, their document.
#pragma once

#include <cstdint>
#include <string_view>

#include "dc2ps/RecordParts.h"

namespace dc2ps {

// 9, 10
struct SqlCall : Timed {
    static constexpr bool kLevelFirst = true;
    std::string_view dataSource, sql;
    template <class R, class F>
    static constexpr void fields(R& r, F&& f) {
        if (r.phase != Phase::start) return;
        f("dataSource", r.dataSource);
        f("sql", r.sql);
    }
};

// 33, 34
struct JndiCall : Timed {
    static constexpr bool kLevelFirst = true;
    std::string_view providerUrl, lookupName;
    template <class R, class F>
    static constexpr void fields(R& r, F&& f) {
        if (r.phase != Phase::start) return;
        f("providerUrl", r.providerUrl);
        f("lookupName", r.lookupName);
    }
};

// 35, 36
struct MailCall : Timed {
    static constexpr bool kLevelFirst = true;
    std::string_view serverUrl, subject;
    template <class R, class F>
    static constexpr void fields(R& r, F&& f) {
        if (r.phase != Phase::start) return;
        f("serverUrl", r.serverUrl);
        f("subject", r.subject);
    }
};

// 37, 38
struct JcaCall : Timed {
    std::string_view eisName;
    template <class R, class F>
    static constexpr void fields(R& r, F&& f) {
        if (r.phase == Phase::start) f("eisName", r.eisName);
    }
};

// 25 to 32. Only receive and browse carry a selector.
struct JmsCall : Timed {
    std::string_view server, destination, selector;
    constexpr bool hasSelector() const { return type <= RecordType::jmsBrowseEnd; }
    template <class R, class F>
    static constexpr void fields(R& r, F&& f) {
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
    static constexpr void fields(R& r, F&& f) {
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
    static constexpr void fields(R& r, F&& f) {
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
    static constexpr void fields(R& r, F&& f) {
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
    static constexpr void fields(R& r, F&& f) {
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
    static constexpr void fields(R& r, F&& f) {
        if (r.phase == Phase::start) f("methodId", r.methodId);
    }
};

// 140, 141: here the end carries the name.
struct PortalGateway : Timed {
    std::string_view pageName;
    template <class R, class F>
    static constexpr void fields(R& r, F&& f) {
        if (r.phase != Phase::start) f("pageName", r.pageName);
    }
};

// 124, 125
struct HeapAllocation : Timed {
    std::uint32_t methodId = 0;
    std::string_view className;
    std::int32_t line = 0;
    template <class R, class F>
    static constexpr void fields(R& r, F&& f) {
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
    static constexpr void fields(R& r, F&& f) {
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
    static constexpr void fields(R& r, F&& f) {
        if (r.phase != Phase::start) return;
        f("methodId", r.methodId);
        f("class", r.className);
        f("ownerType", r.ownerType);
        f("ownerName", r.ownerName);
        f("ownerApplication", r.ownerApplication);
        f("ownerMethodId", r.ownerMethodId);
    }
};

}  // namespace dc2ps
