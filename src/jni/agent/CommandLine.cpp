#include "agent/CommandLine.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "foundation/Log.h"
#include "os/RegularFile.h"

namespace {

using Words = std::vector<std::string>;

// Options of the launcher whose value is a word of its own.
constexpr const char* kTakesWord[] = {
    "-cp",
    "-classpath",
    "--class-path",
    "-p",
    "--module-path",
    "--upgrade-module-path",
    "--add-modules",
    "--enable-native-access",
    "--add-exports",
    "--add-opens",
    "--add-reads",
    "--limit-modules",
    "--patch-module",
    "--source",
    "--describe-module",
    "-d",
};
// Options after whose word the application's own arguments begin.
constexpr const char* kNamesProgram[] = {"-jar", "-m", "--module"};

template <std::size_t n>
bool isOneOf(const std::string& word, const char* const (&list)[n]) {
    return std::any_of(std::begin(list), std::end(list),
                       [&](const char* entry) { return word == entry; });
}

bool isJavaLauncher(const std::string& program) {
    const std::size_t slash = program.rfind('/');
    const std::string name = slash == std::string::npos ? program : program.substr(slash + 1);
    return name == "java" || name == "javaw";
}

Words fromEnvironment(const char* variable) {
    const char* const text = std::getenv(variable);
    return text == nullptr ? Words{} : splitOptions(text);
}

void append(Words& to, const Words& more) {
    to.insert(to.end(), more.begin(), more.end());
}

// "@file" replaced by the file's words; an unreadable file would have stopped the launcher, so it
// is no argument file. What a pipe held is gone, and opening it again could wait for ever.
Words expandArgumentFile(const std::string& word) {
    constexpr std::size_t kLargest = std::size_t{16} << 20;  // bytes
    const auto text = os::readRegular(word.substr(1), kLargest);
    if (text) return splitOptions(*text, true);
    return errno == EINVAL ? Words{} : Words{word};
}

// The launcher's words up to the main class, jar or module. What stands behind is the application's
// and is not looked at: an @file there is a file of its own, and may be anything.
class LauncherOptions {
public:
    explicit LauncherOptions(const Words& commandLine) {
        for (std::size_t i = 1; i < commandLine.size() && !programSeen_; ++i) {
            const std::string& word = commandLine[i];
            if (files_ && word.size() > 1 && word[0] == '@' && word[1] != '@') {
                for (const std::string& fromFile : expandArgumentFile(word)) take(fromFile);
            } else {
                take(word);
            }
        }
    }

    const Words& words() const { return words_; }

private:
    void take(const std::string& word) {
        if (programSeen_) return;
        if (isValue_) {
            isValue_ = false;
        } else if (word.empty() || word[0] != '-' || isOneOf(word, kNamesProgram)) {
            programSeen_ = true;
            return;
        } else {
            isValue_ = isOneOf(word, kTakesWord);
            if (word == "--disable-@files") files_ = false;
        }
        words_.push_back(word);
    }

    Words words_;
    bool files_ = true;         // @files are replaced
    bool isValue_ = false;      // the next word belongs to the option before it
    bool programSeen_ = false;  // the rest is the application's
};

}  // namespace

Words splitOptions(const std::string& text, bool argumentFile) {
    Words words;
    std::string word;
    bool inWord = false;
    char quote = '\0';
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (quote != '\0') {
            if (c == quote) {
                quote = '\0';
            } else if (argumentFile && c == '\\' && i + 1 < text.size()) {
                word += text[++i];
            } else {
                word += c;
            }
        } else if (c == '"' || c == '\'') {
            quote = c;
            inWord = true;
        } else if (std::isspace(static_cast<unsigned char>(c)) != 0) {
            if (inWord) words.push_back(word);
            word.clear();
            inWord = false;
        } else if (argumentFile && c == '#' && !inWord) {
            i = std::min(text.find('\n', i), text.size() - 1);
        } else {
            word += c;
            inWord = true;
        }
    }
    if (inWord) words.push_back(word);
    return words;
}

Words effectiveVmArguments(const Words& commandLine) {
    VEL_TRACE("effectiveVmArguments(const std::vector<std::string>&)");
    Words all;
    const bool launcher = !commandLine.empty() && isJavaLauncher(commandLine[0]);
    if (!commandLine.empty()) all.push_back(commandLine[0]);
    append(all, fromEnvironment("JAVA_TOOL_OPTIONS"));
    if (launcher) {
        append(all, fromEnvironment("JDK_JAVA_OPTIONS"));
        append(all, LauncherOptions(commandLine).words());
    } else if (!commandLine.empty()) {
        all.insert(all.end(), commandLine.begin() + 1, commandLine.end());
    }
    append(all, fromEnvironment("_JAVA_OPTIONS"));
    return all;
}
