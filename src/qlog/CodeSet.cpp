#include "qlog/CodeSet.h"

#include <sstream>

#include "os/RegularFile.h"

namespace qmsg {
namespace {
const iconv_t kNone = reinterpret_cast<iconv_t>(-1);  // NOLINT: as POSIX has it
}  // namespace

CodeSet::CodeSet(const std::string& directory, const std::string& catalogue) : converter_(kNone) {
    if (directory.empty() || catalogue.find('/') != std::string::npos) return;
    constexpr std::size_t kLargest = 4096;  // bytes
    std::istringstream file(
        os::readRegular(directory + "/" + catalogue + ".codeset", kLargest).value_or(""));
    std::string name;
    if (file >> name) converter_ = ::iconv_open("UTF-8", name.c_str());
}

CodeSet::~CodeSet() {
    if (converter_ != kNone) ::iconv_close(converter_);
}

std::string CodeSet::toUtf8(const std::string& text) {
    if (converter_ == kNone) return text;
    std::string out(text.size() * 4 + 16, '\0');  // no code set needs more than four bytes for one
    char* from = const_cast<char*>(text.data());  // NOLINT: iconv reads it only
    char* to = out.data();
    std::size_t left = text.size();
    std::size_t room = out.size();
    ::iconv(converter_, nullptr, nullptr, nullptr, nullptr);
    if (::iconv(converter_, &from, &left, &to, &room) == static_cast<std::size_t>(-1)) return text;
    out.resize(out.size() - room);
    return out;
}

}  // namespace qmsg
