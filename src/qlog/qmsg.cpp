// libqmsg: message catalogues and their code sets behind a plain C interface.
#include "qlog/qmsg.h"

#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "qlog/Catalogue.h"
#include "qlog/CodeSet.h"
#include "qlog/qlog.h"

#define QMSG_EXPORT extern "C" __attribute__((visibility("default")))

namespace {

struct Opened {
    Opened(const std::string& name, const std::string& codesets)
        : catalogue(name), codeset(codesets, name) {}
    qmsg::Catalogue catalogue;
    qmsg::CodeSet codeset;
};

struct Library {
    std::mutex
        lock;  // guards all below; held while a catalogue is opened, so that it is opened once
    std::string codesetDirectory;
    std::map<std::string, std::unique_ptr<Opened>> opened;
};

// Never freed: messages may be asked for while the process ends.
Library& library() {
    static Library* const instance = new Library;
    return *instance;
}

int lookUp(const char* name, int set, int number, char* text, size_t room) {
    Library& lib = library();
    const std::lock_guard<std::mutex> locked(lib.lock);
    auto& entry = lib.opened[name];
    if (!entry) entry = std::make_unique<Opened>(name, lib.codesetDirectory);
    const auto found = entry->catalogue.text(set, number);
    if (!found) return -1;
    const std::string converted = entry->codeset.toUtf8(*found);
    if (converted.size() >= room) return -1;
    std::memcpy(text, converted.c_str(), converted.size() + 1);
    return static_cast<int>(converted.size());
}

}  // namespace

QMSG_EXPORT int qmsgi_lookup(const char* catalogue, int set, int number, char* text, size_t room) {
    if (catalogue == nullptr || *catalogue == 0 || text == nullptr) return -1;
    try {
        return lookUp(catalogue, set, number, text, room);
    } catch (...) {
        return -1;
    }
}

QMSG_EXPORT void qmsgi_forget(void) {
    Library& lib = library();
    const std::lock_guard<std::mutex> locked(lib.lock);
    lib.opened.clear();
}

QMSG_EXPORT void zis_set_dir(const char* codesetDirectory) {
    try {
        Library& lib = library();
        const std::lock_guard<std::mutex> locked(lib.lock);
        lib.codesetDirectory = codesetDirectory != nullptr ? codesetDirectory : "";
        lib.opened.clear();
    } catch (...) {
        // Out of memory: texts stay unconverted.
    }
}
