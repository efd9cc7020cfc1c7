// Prints the source of the collector's message catalogue from the table that the code logs by, in
// the form that gencat reads, so that catalogue and code cannot drift:
//     message_catalogue > velprobeMessages.msg && gencat velprobeMessages.cat velprobeMessages.msg
#include <cstdio>
#include <cstring>
#include <map>

#include "foundation/Messages.h"

namespace {

constexpr Message kMessages[] = {
#define VEL_LIST_MESSAGE(name, number, level, text) {number, MessageLevel::level, text},
    VEL_MESSAGES(VEL_LIST_MESSAGE)
#undef VEL_LIST_MESSAGE
};

// With $quote set, the quote and the backslash are written with a backslash in front.
void printQuoted(const char* text) {
    std::putchar('"');
    for (; *text != 0; ++text) {
        if (*text == '\n') {
            std::fputs("\\n", stdout);
            continue;
        }
        if (*text == '"' || *text == '\\') std::putchar('\\');
        std::putchar(*text);
    }
    std::putchar('"');
}

}  // namespace

int main() {
    // By number, because gencat wants them ascending. Null: two texts share the number, so one
    // translation could not stand for both.
    std::map<int, const char*> texts;
    for (const Message& message : kMessages) {
        const auto [entry, isNew] = texts.emplace(message.number, message.text);
        if (!isNew && entry->second != nullptr && std::strcmp(entry->second, message.text) != 0) {
            entry->second = nullptr;
        }
    }
    std::puts(
        "$ The operator messages of the data collector. To translate them, see docs/LOGGING.md: "
        "keep the");
    std::puts(
        "$ numbers and the operands (\"%s\", \"%0$d\" ...), which may change places when they are "
        "written by");
    std::puts("$ position, counted from zero. A number that is left out is logged in English.");
    std::puts("$ The next line is for gencat.\n$ codeset=UTF-8");
    std::puts("$set 1\n$quote \"");
    for (const auto& [number, text] : texts) {
        if (text == nullptr) {
            std::printf("$ %d stands for two texts and is not translated\n", number);
            continue;
        }
        std::printf("%d ", number);
        printQuoted(text);
        std::putchar('\n');
    }
    return std::ferror(stdout) != 0 || std::fflush(stdout) != 0 ? 1 : 0;
}
