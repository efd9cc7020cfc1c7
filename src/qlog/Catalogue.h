// One message catalogue as gencat writes it, found through NLSPATH for the language of the
// environment.
//
// Ownership: holds the C library's catalogue descriptor. Threads: texts may be asked for from any
// thread.
#pragma once

#include <nl_types.h>

#include <optional>
#include <string>
#include <vector>

namespace qmsg {

class Catalogue {
public:
    // Null inside when no sound catalogue of that name is found: every look-up then finds nothing.
    explicit Catalogue(const std::string& name);
    ~Catalogue();
    Catalogue(const Catalogue&) = delete;
    Catalogue& operator=(const Catalogue&) = delete;

    [[nodiscard]] std::optional<std::string> text(int set, int number) const;

private:
    bool open(const std::string& path);

    nl_catd catalogue_;
};

// The files to try for a catalogue, best first. For every language, from the full name of the
// locale
// ("de_DE.UTF-8") over "de_DE" and "de" to "C", each template of nlspath ("%L" the language as
// tried, "%l" its first part, "%t" territory, "%c" code set, "%N" catalogue, "%%"). The C library
// expands "%L" to the full name only, which would ask a translator for one copy per spelling of a
// code set.
[[nodiscard]] std::vector<std::string> candidates(const std::string& name,
                                                  const std::string& locale,
                                                  const std::string& nlspath);

// Whether the C library can use the file without reading outside it: it trusts the tables' sizes.
[[nodiscard]] bool isSound(const std::string& file);

}  // namespace qmsg
