// Hands velora.jar to <java.home>/lib/libinstrument.so.
#include "launch/JavaSide.h"

#include <dlfcn.h>
#include <unistd.h>

#include <sstream>
#include <string_view>

namespace launch {
namespace {

using StartFunction = jint(JNICALL*)(JavaVM*, char*, void*);

// One value of --add-modules: names separated by commas.
bool namesInstrument(const std::string& modules) {
    std::istringstream list(modules);
    for (std::string name; std::getline(list, name, ',');)
        if (name == "java.instrument" || name == "ALL-SYSTEM" || name == "ALL-DEFAULT") return true;
    return false;
}

}  // namespace

bool leavesOutInstrument(const std::string& mainModule, const std::vector<std::string>& arguments) {
    if (mainModule.empty()) return false;
    constexpr std::string_view kFlag = "--add-modules";
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::string& argument = arguments[i];
        if (argument.compare(0, kFlag.size(), kFlag) != 0) continue;
        if (argument.size() == kFlag.size()) {
            if (i + 1 < arguments.size() && namesInstrument(arguments[i + 1])) return false;
        } else if (argument[kFlag.size()] == '=' &&
                   namesInstrument(argument.substr(kFlag.size() + 1))) {
            return false;
        }
    }
    return true;
}

std::string startJavaSide(JavaVM* vm, Moment moment, const std::string& javaHome,
                          const std::string& jar, const std::string& arguments) {
    if (access(jar.c_str(), R_OK) != 0) return "cannot read " + jar;
    // The instrument library ends the jar's path at the first '='.
    if (jar.find('=') != std::string::npos) return "the path " + jar + " holds a '='";
    const std::string library = javaHome + "/lib/libinstrument.so";
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
