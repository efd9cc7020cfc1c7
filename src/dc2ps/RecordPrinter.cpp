#include "dc2ps/RecordPrinter.h"

#include <type_traits>

#include "dc2ps/Text.h"

namespace dc2ps {

namespace {

class FieldPrinter {
public:
    explicit FieldPrinter(std::string& out) : out_(out) {}

    void operator()(const char* name, std::string_view text) {
        label(name);
        out_ += '"';
        appendText(out_, text, Escape::quoted);
        out_ += '"';
    }
    void operator()(const char* name, const WallTime& time) {
        label(name);
        appendIsoTime(out_, time.micros());
    }
    void operator()(const char* name, const CountAndAverage& pair) {
        label(name);
        appendNumber(out_, std::int64_t{pair.count});
        out_ += "x";
        appendNumber(out_, pair.averageTime);
    }
    void operator()(const char* name, const RawBytes& raw) {
        constexpr char digits[] = "0123456789abcdef";
        label(name);
        for (const char c : raw.bytes) {
            const auto byte = static_cast<unsigned char>(c);
            out_ += digits[byte >> 4];
            out_ += digits[byte & 15];
        }
    }
    template <class Integer>
    requires std::is_integral_v<Integer>
    void operator()(const char* name, Integer value) {
        label(name);
        appendNumber(out_, static_cast<std::int64_t>(value));
    }

    void common(const Timed& r) {
        (*this)("thread", r.threadId);
        (*this)("depth", r.depth);
        (*this)("time", r.time);
        (*this)("cpu", r.cpuTime);
        (*this)("level", r.probeLevel);
    }

    void elements(const Mqi& r) {
        label("elements");
        out_ += '[';
        for (std::int32_t i = 0; i < r.elementCount; ++i) {
            const Mqi::Element element = r.element(static_cast<std::size_t>(i));
            if (i > 0) out_ += ' ';
            appendNumber(out_, std::int64_t{element.callType});
            out_ += ':';
            appendNumber(out_, std::int64_t{element.count});
            out_ += 'x';
            appendNumber(out_, element.averageTime);
        }
        out_ += ']';
    }

    void elements(const ClassLoad& r) {
        label("methods");
        out_ += '[';
        r.forEachMethod([&](const ClassLoad::Method& method) {
            if (out_.back() != '[') out_ += ' ';
            appendNumber(out_, std::int64_t{method.methodId});
            out_ += ':';
            appendText(out_, method.name, Escape::terminal);
            appendText(out_, method.signature, Escape::terminal);
        });
        out_ += ']';
    }

    void elements(const ClassUnload& r) {
        label("methods");
        out_ += '[';
        for (std::int32_t i = 0; i < r.methodCount; ++i) {
            if (i > 0) out_ += ' ';
            appendNumber(out_, std::int64_t{r.methodId(static_cast<std::size_t>(i))});
        }
        out_ += ']';
    }

    template <class R>
    void elements(const R&) {}

private:
    void label(const char* name) {
        out_ += ' ';
        out_ += name;
        out_ += '=';
    }

    std::string& out_;
};

}  // namespace

void appendRecord(std::string& out, const Record& record) {
    std::visit(
        [&out](const auto& r) {
            using R = std::decay_t<decltype(r)>;
            out += recordTypeName(r.type);
            FieldPrinter print(out);
            if constexpr (std::is_base_of_v<Timed, R>) print.common(r);
            R::fields(r, print);
            print.elements(r);
        },
        record);
}

}  // namespace dc2ps
