// Hands velora.jar to <java.home>/lib/libinstrument.so.
#include "launch/JavaSide.h"

#include <dlfcn.h>

#include <optional>
#include <sstream>

#include "launch/AgentJar.h"

namespace launch {
namespace {

using StartFunction = jint(JNICALL*)(JavaVM*, char*, void*);

// One value of --add-modules or --limit-modules: names separated by commas.
bool namesInstrument(const std::string& modules) {
    std::istringstream list(modules);
    for (std::string name; std::getline(list, name, ',');)
        if (name == "java.instrument" || name == "java.se" || name == "ALL-SYSTEM" ||
            name == "ALL-DEFAULT")
            return true;
    return false;
}

std::string instrumentLibrary(const std::string& javaHome) {
    return javaHome + "/lib/libinstrument.so";
}

}  // namespace

ModuleFlags moduleFlags(const std::string& mainModule, const std::vector<std::string>& arguments) {
    ModuleFlags flags{mainModule, {}, {}};
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::string& word = arguments[i];
        const std::string next = i + 1 < arguments.size() ? arguments[i + 1] : "";
        const auto valueOf = [&](const std::string& flag) -> std::optional<std::string> {
            if (word == flag) return next;
            if (word.starts_with(flag + "=")) return word.substr(flag.size() + 1);
            return std::nullopt;
        };
        if (const auto modules = valueOf("--limit-modules")) flags.limit = *modules;
        if (const auto modules = valueOf("--add-modules")) flags.added.push_back(*modules);
    }
    return flags;
}

bool leavesOutInstrument(const ModuleFlags& flags) {
    for (const std::string& modules : flags.added)
        if (namesInstrument(modules)) return false;
    return !flags.mainModule.empty() || (!flags.limit.empty() && !namesInstrument(flags.limit));
}

std::string troubleWithJavaSide(const std::string& javaHome, const std::string& jar) {
    // The instrument library ends the jar's path at the first '='.
    if (jar.find('=') != std::string::npos) return "the path " + jar + " holds a '='";
    if (std::string trouble = troubleWithJar(jar); !trouble.empty()) return trouble;
    const std::string library = instrumentLibrary(javaHome);
    if (dlopen(library.c_str(), RTLD_LAZY | RTLD_LOCAL) == nullptr)
        return std::string("cannot load ") + library + ": " + dlerror();
    return {};
}

std::string startJavaSide(JavaVM* vm, Moment moment, const std::string& javaHome,
                          const std::string& jar, const std::string& arguments) {
    const std::string library = instrumentLibrary(javaHome);
    void* instrument = dlopen(library.c_str(), RTLD_LAZY | RTLD_LOCAL);
    if (instrument == nullptr) return std::string("cannot load ") + library + ": " + dlerror();
    const char* entry = moment == Moment::kVmStart ? "Agent_OnLoad" : "Agent_OnAttach";
    const auto start = reinterpret_cast<StartFunction>(dlsym(instrument, entry));
    if (start == nullptr) return library + " has no " + entry;
    std::string text = jar + "=" + arguments;
    const jint rc = start(vm, text.data(), nullptr);
    return rc == JNI_OK ? "" : library + " refused " + jar + " with code " + std::to_string(rc);
}

}  // namespace launch
