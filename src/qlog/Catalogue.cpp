#include "qlog/Catalogue.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "os/RegularFile.h"

namespace qmsg {
namespace {

constexpr std::size_t kLargestFile = std::size_t{16} << 20;  // bytes
const nl_catd kNone = reinterpret_cast<nl_catd>(-1);         // NOLINT: as POSIX has it

std::string environment(const char* name) {
    const char* value = std::getenv(name);
    return value != nullptr ? value : "";
}

// The order of precedence that the locale functions use. Not setlocale(): a server that never calls
// it, or whose locale is not installed, still says in its environment which language its people
// read.
std::string languageOfEnvironment() {
    for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        std::string value = environment(name);
        if (!value.empty()) return value.find('/') == std::string::npos ? value : "C";
    }
    return "C";
}

struct Locale {  // language_territory.codeset@modifier
    std::string whole;
    std::string language;
    std::string territory;
    std::string codeset;
};

Locale split(const std::string& whole) {
    Locale locale;
    locale.whole = whole;
    std::string_view rest = std::string_view(whole).substr(0, whole.find('@'));
    const auto takeAfter = [&rest](char sign) {
        const std::size_t at = rest.find(sign);
        if (at == std::string_view::npos) return std::string();
        std::string part(rest.substr(at + 1));
        rest = rest.substr(0, at);
        return part;
    };
    locale.codeset = takeAfter('.');
    locale.territory = takeAfter('_');
    locale.language = rest;
    return locale;
}

std::vector<std::string> languages(const std::string& locale) {
    std::vector<std::string> tried;
    const auto add = [&tried](const std::string& language) {
        if (language.empty() || language == "POSIX") return;
        for (const auto& before : tried) {
            if (before == language) return;
        }
        tried.push_back(language);
    };
    add(locale);
    add(locale.substr(0, locale.find('@')));
    add(locale.substr(0, locale.find_first_of(".@")));
    add(locale.substr(0, locale.find_first_of("_.@")));
    add("C");
    return tried;
}

std::string expand(std::string_view pattern, const std::string& name, const Locale& locale) {
    std::string path;
    for (std::size_t i = 0; i < pattern.size(); ++i) {
        if (pattern[i] != '%' || i + 1 == pattern.size()) {
            path += pattern[i];
            continue;
        }
        switch (pattern[++i]) {
            case 'N':
                path += name;
                break;
            case 'L':
                path += locale.whole;
                break;
            case 'l':
                path += locale.language;
                break;
            case 't':
                path += locale.territory;
                break;
            case 'c':
                path += locale.codeset;
                break;
            default:
                path += pattern[i];
                break;
        }
    }
    return path;
}

std::uint32_t word(const std::string& file, std::size_t index) {
    std::uint32_t value = 0;
    std::memcpy(&value, file.data() + index * sizeof value, sizeof value);
    return value;
}

}  // namespace

// The file: magic, plane size, plane depth; the table of (set, number, offset of the text) in one
// byte order and again in the other; the texts. All words of 32 bits.
bool isSound(const std::string& file) {
    constexpr std::uint32_t kMagic = 0x960408DE;
    constexpr std::size_t kHead = 3;  // words
    if (file.size() <= kHead * 4 || file.back() != 0 || word(file, 0) != kMagic) return false;
    const std::uint64_t planeSize = word(file, 1);
    const std::uint64_t planeDepth = word(file, 2);
    if (planeSize == 0 || planeDepth == 0 || planeSize > file.size() || planeDepth > file.size()) {
        return false;
    }
    const std::uint64_t entries = planeSize * planeDepth;
    const std::uint64_t textStart = (kHead + entries * 3 * 2) * 4;
    if (textStart >= file.size()) return false;
    for (std::uint64_t entry = 0; entry < entries; ++entry) {
        if (word(file, kHead + entry * 3 + 2) >= file.size() - textStart) return false;
    }
    return true;
}

std::vector<std::string> candidates(const std::string& name, const std::string& locale,
                                    const std::string& nlspath) {
    if (name.find('/') != std::string::npos) return {name};
    std::vector<std::string> paths;
    for (const auto& language : languages(locale)) {
        const Locale parts = split(language);
        std::string_view rest = nlspath;
        while (!rest.empty()) {
            const std::size_t end = rest.find(':');
            const std::string_view pattern = rest.substr(0, end);
            if (!pattern.empty()) paths.push_back(expand(pattern, name, parts));
            rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
        }
    }
    return paths;
}

Catalogue::Catalogue(const std::string& name) : catalogue_(kNone) {
    for (const auto& path : candidates(name, languageOfEnvironment(), environment("NLSPATH"))) {
        if (open(path)) return;
    }
}

Catalogue::~Catalogue() {
    if (catalogue_ != kNone) ::catclose(catalogue_);
}

// The C library maps the file into memory; somebody who installs a new translation over it would
// then cut the memory under our feet and kill the host. So it gets a private copy to map.
bool Catalogue::open(const std::string& path) {
    const std::string file = os::readRegular(path, kLargestFile).value_or("");
    if (!isSound(file)) return false;
    const int copy = ::memfd_create("catalogue", MFD_CLOEXEC);
    if (copy < 0) return false;
    if (::write(copy, file.data(), file.size()) == static_cast<ssize_t>(file.size())) {
        catalogue_ = ::catopen(("/proc/self/fd/" + std::to_string(copy)).c_str(), 0);
    }
    ::close(copy);
    return catalogue_ != kNone;
}

std::optional<std::string> Catalogue::text(int set, int number) const {
    if (catalogue_ == kNone) return std::nullopt;
    static const char kMissing[] = "";  // told by its address: a text may well be empty
    const char* found = ::catgets(catalogue_, set, number, kMissing);
    if (found == kMissing || found == nullptr) return std::nullopt;
    return found;
}

}  // namespace qmsg
