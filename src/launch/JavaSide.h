// Starts velora.jar's premain through the VM's own instrument library.
#pragma once

#include <jni.h>

#include <string>
#include <vector>

namespace launch {

enum class Moment { kVmStart, kRunningVm };

// What the command line says of modules; empty where it says nothing.
struct ModuleFlags {
    std::string mainModule;          // of "java -m module/class"
    std::string limit;               // --limit-modules
    std::vector<std::string> added;  // each --add-modules
};

// The VM tells no agent of the latter two, so they are taken from the words of the command line.
ModuleFlags moduleFlags(const std::string& mainModule, const std::vector<std::string>& arguments);

// Whether the VM may come up without the module java.instrument: a named main module brings only
// what it requires, and the instrument library ends a VM in which it does not find that module
// (seen on 17 and 25). -javaagent adds the module by itself; a library loaded later cannot, only
// the command line can.
bool leavesOutInstrument(const ModuleFlags& flags);

// Why startJavaSide() would fail or end the VM; empty when nothing speaks against it.
std::string troubleWithJavaSide(const std::string& javaHome, const std::string& jar);

// Does what -javaagent:<jar>=<arguments> does at VM start (or an attach in a running VM). Empty on
// success, else why the Java side does not run; nothing else then happened. In a failure the
// application runs on.
std::string startJavaSide(JavaVM* vm, Moment moment, const std::string& javaHome,
                          const std::string& jar, const std::string& arguments);

}  // namespace launch
