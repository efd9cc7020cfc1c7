#include "server/join/CutText.h"

namespace server {

namespace {

constexpr std::string_view kEllipsis = "\u2026";

std::size_t shownSize(char c) {
    constexpr std::size_t escaped = 6;
    const auto byte = static_cast<unsigned char>(c);
    return byte < 0x20 || byte == 0x7F || byte == '"' || byte == '\\' ? escaped : 1;
}

bool continues(char c) {
    return (static_cast<unsigned char>(c) & 0xC0) == 0x80;
}

}  // namespace

std::string cutText(std::string_view untrusted, std::size_t maxBytes) {
    std::size_t shown = 0;
    std::size_t end = 0;  // where it is cut if it is
    for (std::size_t i = 0; i < untrusted.size(); ++i) {
        shown += shownSize(untrusted[i]);
        if (shown > maxBytes) return std::string(untrusted.substr(0, end)).append(kEllipsis);
        const bool whole = i + 1 == untrusted.size() || !continues(untrusted[i + 1]);
        if (whole && shown + kEllipsis.size() <= maxBytes) end = i + 1;
    }
    return std::string(untrusted);
}

}  // namespace server
