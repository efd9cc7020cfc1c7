#include "server/join/SpanLabels.h"

#include <string_view>

#include "dc2ps/Text.h"

namespace server {

void appendHex(std::string& out, std::string_view bytes) {
    constexpr char digits[] = "0123456789abcdef";
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        out += digits[byte >> 4];
        out += digits[byte & 15];
    }
}

namespace {

class Labeller {
public:
    Labeller(const AgentNames& names, SpanLabels& labels) : names_(names), to_(labels) {}

    void operator()(const dc2ps::ServletRequest& r) {
        request(r.named, r.name, r.application, r.url);
        to_.user = r.user;
    }
    void operator()(const dc2ps::NamedRequest& r) {
        request(r.named, r.name, r.application, r.url);
    }
    void operator()(const dc2ps::PortalRequest& r) {
        request(1, r.name, r.application, r.url);
        to_.user = r.user;
    }
    void operator()(const dc2ps::WebServiceRequest& r) { request(1, r.name, r.application, r.url); }
    void operator()(const dc2ps::IiopRequest& r) { classAndMethod(r.className, r.methodName); }
    void operator()(const dc2ps::GpsRequest& r) { appendHex(to_.name, r.token.bytes); }
    void operator()(const dc2ps::SqlCall& r) { call(r.sql, r.dataSource); }
    void operator()(const dc2ps::JndiCall& r) { call(r.lookupName, r.providerUrl); }
    void operator()(const dc2ps::MailCall& r) { call(r.subject, r.serverUrl); }
    void operator()(const dc2ps::JcaCall& r) { call(r.eisName, {}); }
    void operator()(const dc2ps::JmsCall& r) { call(r.destination, r.server); }
    void operator()(const dc2ps::JdoCall& r) { classAndMethod(r.className, r.methodName); }
    void operator()(const dc2ps::MqCall& r) { call(r.queue, r.queueManager); }
    void operator()(const dc2ps::GpsMqCall& r) { call(r.queue, {}); }
    void operator()(const dc2ps::WsFault& r) {
        to_.name.assign(r.faultCode).append(": ").append(r.faultText);
        to_.application = r.application;
    }
    void operator()(const dc2ps::PortalStep& r) { to_.name = names_.portalMethod(r.methodId); }
    void operator()(const dc2ps::PortalGateway& r) { to_.name = r.pageName; }
    void operator()(const dc2ps::HeapAllocation& r) { call(r.className, {}); }
    void operator()(const dc2ps::LockStep& r) { call(r.className, {}); }
    void operator()(const dc2ps::LockContention& r) { call(r.className, {}); }
    void operator()(const dc2ps::MethodStep& r) {
        to_.name = names_.method(r.methodId);
        if (!to_.name.empty()) return;
        to_.name = "method ";
        dc2ps::appendNumber(to_.name, std::uint64_t{r.methodId});
    }
    template <class Other>
    void operator()(const Other&) {}

private:
    // A request that is not named is called by its url in every respect.
    void request(std::uint8_t named, std::string_view name, std::string_view application,
                 std::string_view url) {
        to_.name = named ? name : url;
        to_.application = named ? application : url;
        to_.url = url;
    }
    void call(std::string_view name, std::string_view url) {
        to_.name = name;
        to_.url = url;
    }
    void classAndMethod(std::string_view className, std::string_view methodName) {
        to_.name = className;
        if (!className.empty() && !methodName.empty()) to_.name += '.';
        to_.name += methodName;
    }

    const AgentNames& names_;
    SpanLabels& to_;
};

}  // namespace

void labelRecord(const dc2ps::Record& record, const AgentNames& names, SpanLabels& labels) {
    labels.name.clear();
    labels.application.clear();
    labels.url.clear();
    labels.user.clear();
    const dc2ps::Timed* timed = dc2ps::asTimed(record);
    const bool nameless = timed && timed->phase != dc2ps::Phase::start &&
                          !std::holds_alternative<dc2ps::PortalGateway>(record);
    if (!nameless) std::visit(Labeller(names, labels), record);
}

void labelSpan(const Span& span, const AgentNames& names, SpanLabels& labels) {
    const bool endNames = span.kind == SpanKind::portalGatewayServlet || !span.start;
    const auto& told = endNames && span.end ? span.end : span.start;
    if (told) labelRecord(*told, names, labels);
}

}  // namespace server
