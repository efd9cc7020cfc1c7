// Records without the common prefix: what happened in the VM, figures, names, losses. Included by
// Records.h, their document.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "dc2ps/RecordParts.h"

namespace dc2ps {

// 2, 3: no depth and no probe level.
struct MethodStep {
    RecordType type{};
    Phase phase = Phase::start;
    std::uint32_t threadId = 0;
    std::uint32_t methodId = 0;
    WallTime time;
    std::int64_t cpuTime = 0;  // ns
    template <class R, class F>
    static constexpr void fields(R& r, F&& f) {
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
    static constexpr void fields(R& r, F&& f) {
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
    static constexpr void fields(R& r, F&& f) {
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
    static constexpr void fields(R& r, F&& f) {
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
    static constexpr void fields(R& r, F&& f) {
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
    static constexpr void fields(R& r, F&& f) {
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
    static constexpr void fields(R& r, F&& f) {
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
        template <class R, class F>
        static constexpr void fields(R& r, F&& f) {
            f("callType", r.callType);
            f("count", r.count);
            f("averageTime", r.averageTime);
        }
    };
    RecordType type{};
    std::string_view queueManager, queue;
    std::int64_t snapshotTime = 0;
    std::int32_t elementCount = 0;  // checked: not negative, and elements holds as many
    Bytes elements;
    Element element(std::size_t index) const;
    template <class R, class F>
    static constexpr void fields(R& r, F&& f) {
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
    static constexpr void fields(R& r, F&& f) {
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
    static constexpr void fields(R& r, F&& f) {
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
    static constexpr void fields(R& r, F&& f) {
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
    static constexpr void fields(R& r, F&& f) {
        f("methodId", r.methodId);
        f("method", r.methodName);
    }
};

// 44
struct PsStatus {
    RecordType type{};
    std::string_view status;
    template <class R, class F>
    static constexpr void fields(R& r, F&& f) {
        f("status", r.status);
    }
};

// 1
struct ClassLoad {
    static constexpr std::size_t kMinMethodBytes = 4 + 2 + 2;  // int id, two empty strings
    struct Method {
        std::uint32_t methodId = 0;
        std::string_view name, signature;
        template <class R, class F>
        static constexpr void fields(R& r, F&& f) {
            f("methodId", r.methodId);
            f("name", r.name);
            f("signature", r.signature);
        }
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
    static constexpr void fields(R& r, F&& f) {
        f("sequence", r.sequence);
        f("class", r.className);
        f("methodCount", r.methodCount);
    }

private:
    Method methodAt(std::size_t& at) const;  // moves at past the method
};

// 12: the class is named by its id here.
struct ClassUnload {
    static constexpr std::size_t kMethodBytes = 4;  // int id
    RecordType type{};
    std::uint32_t sequence = 0;  // order of loading; the same in both records of a class
    std::uint32_t classId = 0;
    std::int32_t methodCount = 0;  // checked: not negative, and methodIds holds as many
    Bytes methodIds;
    std::uint32_t methodId(std::size_t index) const;
    template <class R, class F>
    static constexpr void fields(R& r, F&& f) {
        f("sequence", r.sequence);
        f("classId", r.classId);
        f("methodCount", r.methodCount);
    }
};

}  // namespace dc2ps
