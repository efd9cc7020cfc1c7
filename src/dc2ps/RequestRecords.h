// Units of work that somebody asked the server for. Included by Records.h, their document.
#pragma once

#include <cstdint>
#include <string_view>

#include "dc2ps/RecordParts.h"

namespace dc2ps {

// 4, 5, 50. An error ends the request like an end; neither carries a field.
struct ServletRequest : Timed {
    std::uint8_t named = 0;  // 0: both names are empty because they equal the url
    std::string_view name, application, url, user;
    template <class R, class F>
    static constexpr void fields(R& r, F&& f) {
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
    static constexpr void fields(R& r, F&& f) {
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
    static constexpr void fields(R& r, F&& f) {
        if (r.phase == Phase::start) f("token", r.token);
    }
};

// Portal page 65, 66 and portlet 67, 68.
struct PortalRequest : Timed {
    std::string_view name, application, url, user;
    template <class R, class F>
    static constexpr void fields(R& r, F&& f) {
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
    static constexpr void fields(R& r, F&& f) {
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
    static constexpr void fields(R& r, F&& f) {
        if (r.phase != Phase::start) return;
        f("class", r.className);
        f("methodMapKey", r.methodMapKey);
        f("method", r.methodName);
    }
};

}  // namespace dc2ps
