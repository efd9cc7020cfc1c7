// Starts velora.jar's premain through the VM's own instrument library.
#pragma once

#include <jni.h>

#include <string>

namespace launch {

enum class Moment { kVmStart, kRunningVm };

// Does what -javaagent:<jar>=<arguments> does at VM start (or an attach in a running VM). Empty on
// success, else why the Java side does not run; nothing else then happened. In a failure the
// application runs on.
std::string startJavaSide(JavaVM* vm, Moment moment, const std::string& javaHome,
                          const std::string& jar, const std::string& arguments);

}  // namespace launch
