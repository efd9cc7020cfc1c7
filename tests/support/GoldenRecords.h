// tests/golden/records.txt: what the tests of the writer and of the readers share.
#pragma once

#include <fstream>
#include <string>
#include <vector>

struct GoldenRecord {
    std::string name;
    std::string hex;   // its bytes
    std::string line;  // what a reader prints for it
};

// Empty when the file is missing.
inline std::vector<GoldenRecord> readGoldenRecords(const std::string& directory) {
    std::ifstream file(directory + "/records.txt");
    std::vector<GoldenRecord> records;
    GoldenRecord common;  // what "@" stands for
    const auto expanded = [](std::string text, const std::string& with) {
        const std::size_t at = text.find('@');
        return at == std::string::npos ? text : text.replace(at, 1, with);
    };
    for (std::string text; std::getline(file, text);) {
        if (text.empty() || text[0] == '#') continue;
        const std::size_t bytes = text.find(" | ");
        const std::size_t line = text.rfind(" | ");
        const GoldenRecord read{text.substr(0, bytes), text.substr(bytes + 3, line - bytes - 3),
                                text.substr(line + 3)};
        if (read.name == "@")
            common = read;
        else
            records.push_back(
                {read.name, expanded(read.hex, common.hex), expanded(read.line, common.line)});
    }
    return records;
}

inline const std::vector<GoldenRecord>& goldenRecords() {
    static const std::vector<GoldenRecord> all = readGoldenRecords(VELORA_GOLDEN_DIR);
    return all;
}
