// The rows against docs/WIRE.md, and that each was tried.
#include "dc2ps/RecordRows.h"

#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include "dc2ps/RecordFrame.h"
#include "support/GoldenRecords.h"
#include "support/WireWriter.h"

using namespace dc2ps;

namespace {

// A record's fields in the notation of the page, without their names: "s s b".
class Notation {
public:
    std::string text;
    void operator()(const char*, std::string_view) { add("s"); }
    void operator()(const char*, std::uint8_t) { add("b"); }
    void operator()(const char*, std::int8_t) { add("b"); }
    void operator()(const char*, std::int32_t) { add("i"); }
    void operator()(const char*, std::uint32_t) { add("i"); }
    void operator()(const char*, const RawBytes&) { add("s"); }  // a string's shape

private:
    void add(const char* letter) { text += text.empty() ? letter : std::string(" ") + letter; }
};

// What the page must say of a unit of work; "level s s" where the level comes first.
template <class Layout>
std::string fieldsOf(RecordType type) {
    Layout r;
    r.type = type;
    r.phase = rowOf(type).phase;
    Notation fields;
    Layout::fields(r, fields);
    return Layout::kLevelFirst && r.phase == Phase::start ? "level " + fields.text : fields.text;
}

struct Row {
    int number;
    bool sent, timed, inPacket;
    std::string fields;
};

std::vector<Row> rows() {
    std::vector<Row> all;
#define ROW(name, number, shown, layout, phase, span)                                       \
    {                                                                                       \
        constexpr bool timed = std::is_base_of_v<Timed, layout>;                            \
        std::string fields;                                                                 \
        if constexpr (timed) fields = fieldsOf<layout>(RecordType::name);                   \
        all.push_back(                                                                      \
            {number, !std::is_same_v<layout, NoLayout>, timed, kInPacket<layout>, fields}); \
    }
    DC2PS_RECORD_ROWS(ROW)
#undef ROW
    return all;
}

std::vector<std::string> cellsOf(const std::string& line) {
    std::vector<std::string> cells;
    for (std::size_t from = 1, to; (to = line.find('|', from)) != std::string::npos; from = to + 1)
        cells.push_back(
            std::regex_replace(line.substr(from, to - from), std::regex("^ +| +$"), ""));
    return cells;
}

// Calls visit(cells) for the lines of the tables of the page's section.
template <class Visit>
void eachRowOfSection(char section, Visit visit) {
    std::ifstream page(VELORA_GOLDEN_DIR "/../../docs/WIRE.md");
    bool inside = false;
    for (std::string line; std::getline(page, line);) {
        if (line.rfind("## ", 0) == 0) inside = line[3] == section;
        if (inside && line.rfind("| ", 0) == 0) visit(cellsOf(line));
    }
}

// "s(a) b(c, signed)", "**level first**, then s(a)", "s(queue) token b(action)" to letters.
std::string notationOf(const std::string& cell) {
    static const std::regex piece(R"(\*\*level|([sib])\([^)]*\)|token)");
    std::string text;
    for (std::sregex_iterator it(cell.begin(), cell.end(), piece), end; it != end; ++it) {
        const std::string found = (*it)[1].matched       ? (*it)[1].str()
                                  : it->str() == "token" ? "s"
                                                         : "level";
        text += (text.empty() ? "" : " ") + found;
    }
    return text;
}

TEST(RecordRows, ThePageListsTheSameTypes) {
    std::map<int, bool> onPage;  // whether it is sent
    eachRowOfSection('8', [&](const std::vector<std::string>& cells) {
        for (std::size_t i = 0; i + 2 < cells.size(); i += 3) {
            std::smatch numbers;
            if (!std::regex_match(cells[i], numbers, std::regex(R"((\d+)(?:(,| to) (\d+))?)")))
                continue;
            const int first = std::stoi(numbers[1]);
            const int last = numbers[3].matched ? std::stoi(numbers[3]) : first;
            const bool sent = cells[i + 2] != "not sent";
            onPage[first] = onPage[last] = sent;
            for (int n = first; numbers[2] == " to" && n < last; ++n) onPage[n] = sent;
        }
    });
    std::map<int, bool> inRows;
    for (const Row& row : rows()) inRows[row.number] = row.sent;
    EXPECT_EQ(onPage, inRows);
}

TEST(RecordRows, ThePageGivesUnitsOfWorkTheSameFields) {
    std::map<int, std::string> onPage;
    eachRowOfSection('6', [&](const std::vector<std::string>& cells) {
        if (!std::isdigit(static_cast<unsigned char>(cells[0][0]))) return;
        const std::string& fields = cells.back();
        const std::size_t end = fields.find("**END: ");
        onPage[std::stoi(cells[0])] = notationOf(fields.substr(0, end));
        onPage[std::stoi(cells[1])] =
            end == std::string::npos ? "" : notationOf(fields.substr(end));
        if (std::isdigit(static_cast<unsigned char>(cells[2][0]))) onPage[std::stoi(cells[2])] = "";
    });
    std::map<int, std::string> inRows;
    for (const Row& row : rows())
        if (row.timed) inRows[row.number] = row.fields;
    EXPECT_EQ(onPage, inRows);
}

TEST(RecordRows, EachHasAGoldenRecord) {
    std::set<int> golden, inRows;
    for (const GoldenRecord& each : goldenRecords()) golden.insert(byhand::hex(each.hex)[0]);
    for (const Row& row : rows())
        if (row.inPacket) inRows.insert(row.number);
    EXPECT_EQ(golden, inRows);
}

}  // namespace
