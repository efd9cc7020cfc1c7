#include "server/print/RowReader.h"

#include <charconv>
#include <cmath>
#include <string_view>
#include <type_traits>

namespace server {

namespace {

template <class Number>
bool parseWhole(std::string_view text, Number& number) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size();
}

// The value whose name is the text, of count values.
template <class Enum>
bool parseName(std::string_view text, Enum& value, std::size_t count, const char* (*name)(Enum)) {
    for (std::size_t i = 0; i < count; ++i) {
        value = static_cast<Enum>(i);
        if (text == name(value)) return true;
    }
    return false;
}

bool parse(std::string_view text, SpanKind& kind) {
    return parseName(text, kind, static_cast<std::size_t>(SpanKind::none), spanKindName);
}

bool parse(std::string_view text, Outcome& outcome) {
    return parseName(text, outcome, static_cast<std::size_t>(Outcome::noStart) + 1, outcomeName);
}

bool parse(std::string_view text, GivenUp& why) {
    return parseName(text, why, static_cast<std::size_t>(GivenUp::disconnected) + 1, givenUpName);
}

bool parse(std::string_view text, std::string& value) {
    value = text;
    return true;
}

template <class Integer>
requires std::is_integral_v<Integer>
bool parse(std::string_view text, Integer& number) {
    return parseWhole(text, number);
}

// What stands in the text between two places, as a number.
bool parsePart(std::string_view text, std::size_t from, std::size_t count, unsigned& number) {
    return from + count <= text.size() && parseWhole(text.substr(from, count), number);
}

// "2024-05-01T12:00:00.123456Z", or a number of microseconds with "us" behind it.
bool parse(std::string_view text, MicroTime& time) {
    using namespace std::chrono;
    if (text.ends_with("us")) {
        microseconds::rep count = 0;
        if (!parseWhole(text.substr(0, text.size() - 2), count)) return false;
        time = MicroTime(microseconds(count));
        return true;
    }
    constexpr std::string_view form = "0000-00-00T00:00:00.000000Z";
    if (text.size() != form.size()) return false;
    for (std::size_t i = 0; i < form.size(); ++i)
        if (form[i] != '0' && form[i] != text[i]) return false;
    unsigned y = 0, mo = 0, d = 0, h = 0, mi = 0, s = 0, us = 0;
    if (!parsePart(text, 0, 4, y) || !parsePart(text, 5, 2, mo) || !parsePart(text, 8, 2, d) ||
        !parsePart(text, 11, 2, h) || !parsePart(text, 14, 2, mi) || !parsePart(text, 17, 2, s) ||
        !parsePart(text, 20, 6, us))
        return false;
    const year_month_day date(year(static_cast<int>(y)), month(mo), day(d));
    time = sys_days(date) + hours(h) + minutes(mi) + seconds(s) + microseconds(us);
    return date.ok();
}

// A number of milliseconds, however it is written; or null.
template <class Duration>
requires std::is_integral_v<typename Duration::rep>
bool parse(std::string_view text, std::optional<Duration>& duration) {
    constexpr double units =
        std::chrono::duration<double, typename Duration::period>(std::chrono::milliseconds(1))
            .count();
    constexpr double kMost = 9e18;  // fits into 64 bits
    double millis = 0;
    duration.reset();
    if (text == "null") return true;
    if (!parseWhole(text, millis) || !(std::abs(millis * units) < kMost)) return false;
    duration = Duration(std::llround(millis * units));
    return true;
}

template <class Detail>
bool parse(std::string_view text, std::optional<Detail>& detail) {
    return parse(text, detail.emplace());
}

struct FieldReader {
    const JsonObject& object;
    bool& sound;

    template <class Field>
    void operator()(const char* key, Field& field) const {
        if (object.has(key)) sound = parse(object[key], field) && sound;
    }
};

}  // namespace

std::optional<SpanRow> rowOf(const JsonObject& object) {
    std::optional<SpanRow> row(std::in_place);
    bool sound = object.has("kind");
    SpanRow::fields(*row, FieldReader{object, sound});
    if (!sound) row.reset();
    return row;
}

}  // namespace server
