#include "server/print/JsonReader.h"

#include <algorithm>
#include <cstdint>

namespace server {

namespace {

class Parser {
public:
    explicit Parser(std::string_view text) : text_(text) {}

    bool take(char c) {
        blanks();
        if (at_ == text_.size() || text_[at_] != c) return false;
        ++at_;
        return true;
    }

    bool atEnd() {
        blanks();
        return at_ == text_.size();
    }

    bool string(std::string& out) {
        if (!take('"')) return false;
        while (at_ < text_.size()) {
            const char c = text_[at_++];
            if (c == '"') return true;
            if (c != '\\') {
                out += c;
            } else if (!escape(out)) {
                return false;
            }
        }
        return false;
    }

    bool value(std::string& out) {
        blanks();
        if (at_ == text_.size()) return false;
        if (text_[at_] == '"') return string(out);
        if (text_[at_] == '{' || text_[at_] == '[') return nested(out);
        const std::size_t from = at_;
        while (at_ < text_.size() && text_[at_] != ',' && text_[at_] != '}') ++at_;
        out = text_.substr(from, at_ - from);
        return at_ > from;
    }

private:
    void blanks() {
        while (at_ < text_.size() &&
               (text_[at_] == ' ' || text_[at_] == '\t' || text_[at_] == '\r'))
            ++at_;
    }

    bool escape(std::string& out) {
        if (at_ == text_.size()) return false;
        const char c = text_[at_++];
        switch (c) {
            case 'n':
                out += '\n';
                return true;
            case 't':
                out += '\t';
                return true;
            case 'r':
                out += '\r';
                return true;
            case 'u':
                return unit(out);
            default:
                out += c;
                return true;
        }
    }

    // As three bytes even for half a pair: whoever shows the text puts the halves together.
    bool unit(std::string& out) {
        if (text_.size() - at_ < 4) return false;
        std::uint32_t c = 0;
        for (int i = 0; i < 4; ++i) {
            const char digit = text_[at_++];
            const int value = digit >= '0' && digit <= '9'   ? digit - '0'
                              : digit >= 'a' && digit <= 'f' ? digit - 'a' + 10
                              : digit >= 'A' && digit <= 'F' ? digit - 'A' + 10
                                                             : -1;
            if (value < 0) return false;
            c = c << 4 | static_cast<std::uint32_t>(value);
        }
        if (c > 0 && c < 0x80) {
            out += static_cast<char>(c);
        } else if (c < 0x800) {
            out += static_cast<char>(0xC0 | c >> 6);
            out += static_cast<char>(0x80 | (c & 0x3F));
        } else {
            out += static_cast<char>(0xE0 | c >> 12);
            out += static_cast<char>(0x80 | (c >> 6 & 0x3F));
            out += static_cast<char>(0x80 | (c & 0x3F));
        }
        return true;
    }

    // From an opening bracket to the one that closes it, brackets in strings not counted.
    bool nested(std::string& out) {
        const std::size_t from = at_;
        int depth = 0;
        bool inString = false;
        for (; at_ < text_.size(); ++at_) {
            const char c = text_[at_];
            if (inString) {
                if (c == '\\') ++at_;
                inString = c != '"';
                continue;
            }
            if (c == '"') inString = true;
            if (c == '{' || c == '[') ++depth;
            if ((c == '}' || c == ']') && --depth == 0) {
                ++at_;
                out = text_.substr(from, at_ - from);
                return true;
            }
        }
        return false;
    }

    std::string_view text_;
    std::size_t at_ = 0;
};

}  // namespace

std::optional<JsonObject> JsonObject::parse(std::string_view line) {
    Parser parser(line);
    JsonObject object;
    if (!parser.take('{')) return std::nullopt;
    do {
        std::pair<std::string, std::string> member;
        if (!parser.string(member.first) || !parser.take(':') || !parser.value(member.second))
            return std::nullopt;
        object.members_.push_back(std::move(member));
    } while (parser.take(','));
    if (!parser.take('}') || !parser.atEnd()) return std::nullopt;
    return object;
}

bool JsonObject::has(std::string_view key) const {
    return std::any_of(members_.begin(), members_.end(),
                       [key](const auto& member) { return member.first == key; });
}

std::string_view JsonObject::operator[](std::string_view key) const {
    for (const auto& [name, value] : members_)
        if (name == key) return value;
    return {};
}

}  // namespace server
