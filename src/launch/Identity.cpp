// Derives what the command line does not say.
#include "launch/Identity.h"

#include <cctype>
#include <string_view>

namespace launch {
namespace {

std::string withoutTrailingSlashes(std::string path) {
    while (path.size() > 1 && path.back() == '/') path.pop_back();
    return path;
}

// The folder that holds path; empty when path names none.
std::string folderOf(const std::string& path) {
    const auto slash = path.rfind('/');
    if (slash == std::string::npos) return {};
    return slash == 0 ? "/" : path.substr(0, slash);
}

std::string lastPart(const std::string& path, const char* separators) {
    const auto at = path.find_last_of(separators);
    return at == std::string::npos ? path : path.substr(at + 1);
}

std::string fitForFileName(std::string name) {
    for (char& c : name) {
        const bool fits =
            std::isalnum(static_cast<unsigned char>(c)) || c == '.' || c == '-' || c == '_';
        if (!fits) c = '_';
    }
    return name;
}

// "com.acme.Main arg", "module/com.acme.Main" or "/opt/shop.jar arg".
std::string nameOfCommand(const std::string& command) {
    constexpr std::string_view kJar = ".jar";
    const auto jarEnd = command.find(".jar ");  // a jar's path may hold blanks
    if (jarEnd != std::string::npos || command.ends_with(kJar)) {
        const std::string jar = command.substr(0, jarEnd);
        const std::string file = lastPart(jar, "/");
        return file.ends_with(kJar) ? file.substr(0, file.size() - kJar.size()) : file;
    }
    return lastPart(command.substr(0, command.find(' ')), "./$");
}

}  // namespace

std::string defaultServerName(const std::string& catalinaBase, const std::string& javaCommand) {
    std::string name = lastPart(withoutTrailingSlashes(catalinaBase), "/");
    if (name.empty()) name = nameOfCommand(javaCommand);
    return name.empty() ? "appserver" : fitForFileName(name);
}

Identity deriveIdentity(const AgentOptions& options, const Surroundings& world) {
    const auto said = [&](const char* name, const std::string& option) {
        if (std::string property = world.systemProperty(name); !property.empty()) return property;
        return option.empty() ? world.environment(name) : option;
    };
    Identity who;
    who.home = withoutTrailingSlashes(said("am.home", options.home));
    if (who.home.empty()) who.home = folderOf(folderOf(world.libraryPath));
    who.node = said("am.nodename", options.node);
    if (who.node.empty()) who.node = world.hostName.empty() ? "defaultnode" : world.hostName;
    who.server = said("am.appserver", options.server);
    if (who.server.empty()) {
        who.server = defaultServerName(world.systemProperty("catalina.base"),
                                       world.systemProperty("sun.java.command"));
    }
    who.profile = said("am.profilename", options.profile);
    return who;
}

}  // namespace launch
