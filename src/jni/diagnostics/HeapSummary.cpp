#include "diagnostics/HeapSummary.h"

#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "diagnostics/HeapWalker.h"
#include "foundation/Log.h"

SummaryMemory summaryMemory{std::malloc, std::realloc};

namespace {

// A C-heap text that grows by lines. Once it could not grow it stays null.
class SummaryText {
public:
    SummaryText() : text_(static_cast<char*>(summaryMemory.allocate(kSummarySize))) {
        if (text_ == nullptr)
            VEL_DEBUG_MIN("createClassSummaryString",
                          "malloc failed to create class summary string");
        else
            text_[0] = '\0';
    }
    ~SummaryText() { std::free(text_); }
    SummaryText(const SummaryText&) = delete;
    SummaryText& operator=(const SummaryText&) = delete;

    void append(const std::string& line) {
        while (text_ != nullptr && length_ + line.size() + 1 > capacity_) grow();
        if (text_ == nullptr) return;
        std::memcpy(text_ + length_, line.c_str(), line.size() + 1);
        length_ += line.size();
    }

    char* release() {
        char* const text = text_;
        text_ = nullptr;
        return text;
    }

private:
    void grow() {
        capacity_ += kSummaryGrowth;
        VEL_DEBUG_MIN("createClassSummaryString", "maxLength=%d", capacity_);
        auto* const larger = static_cast<char*>(summaryMemory.grow(text_, capacity_));
        if (larger == nullptr) {
            VEL_DEBUG_MIN("createClassSummaryString",
                          "realloc failed to create class summary string");
            std::free(text_);
        }
        text_ = larger;
    }

    char* text_;
    std::size_t capacity_ = kSummarySize;
    std::size_t length_ = 0;
};

// One decimal, and a point in every locale: the server's VM may have set one with a comma.
void appendPercentage(std::string& line, std::uint32_t part, std::uint32_t total) {
    char digits[32];
    const double percentage = 100.0 * part / total;
    const auto result =
        std::to_chars(digits, digits + sizeof digits, percentage, std::chars_format::fixed, 1);
    line.append(digits, result.ptr);
}

std::string summaryLine(const char* name, std::uint32_t size, std::uint32_t count) {
    std::string line(name);
    line += ',';
    line += std::to_string(size);
    line += ',';
    appendPercentage(line, size, TotalObjectSize);
    line += ',';
    line += std::to_string(count);
    line += ',';
    appendPercentage(line, count, TotalObjectCount);
    line += '\n';
    return line;
}

}  // namespace

char* createClassSummaryString() {
    VEL_TRACE("createClassSummaryString()");
    SummaryText text;
    text.append(std::to_string(TotalObjectSize) + ',' + std::to_string(TotalObjectCount) + '\n');
    for (int i = 0; i < ClassTableCount; ++i)
        text.append(summaryLine(ClassTable[i].class_name, ClassTable[i].size, ClassTable[i].count));
    text.append(summaryLine("primitive[]", PrimitiveArraySize, PrimitiveArrayCount));
    text.append(summaryLine("object[]", ObjectArraySize, ObjectArrayCount));
    return text.release();
}
