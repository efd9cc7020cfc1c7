// Code sets of translated texts. Log files are UTF-8; a site whose translator works in another code
// set says so in "<code-set directory>/<catalogue>.codeset": its first word is the name of the code
// set, as iconv knows it. Without that file texts are taken as they are.
//
// Threads: any, one converter per thread of use at a time (the owner's lock guards it).
#pragma once

#include <iconv.h>

#include <string>

namespace qmsg {

class CodeSet {
public:
    CodeSet(const std::string& directory, const std::string& catalogue);
    ~CodeSet();
    CodeSet(const CodeSet&) = delete;
    CodeSet& operator=(const CodeSet&) = delete;

    // The text in UTF-8; as it is when no conversion is asked for or when it cannot be converted.
    [[nodiscard]] std::string toUtf8(const std::string& text);

private:
    iconv_t converter_;
};

}  // namespace qmsg
