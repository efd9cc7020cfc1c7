// The start-up glue of libvelora_agent.so: joins the adapter, the collector and the Java side.
// Three ways lead in, and whichever comes first starts everything, the others then find it done:
//
//   -agentpath:<home>/lib/libvelora_agent.so    Agent_OnLoad, before the VM runs
//   attaching to a running VM                   Agent_OnAttach
//   -javaagent:<home>/lib/velora.jar            a boot class calls System.load, so JNI_OnLoad;
//   premain runs already
//
// Whatever fails here is said once on the standard error stream, and the application runs without
// us.
#include <dlfcn.h>
#include <jvmti.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <exception>
#include <fstream>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "jvmpi/Adapter.h"
#include "launch/AgentOptions.h"
#include "launch/EnvironmentOverlay.h"
#include "launch/Identity.h"
#include "launch/JavaSide.h"

extern "C" {
// The collector's entry, and the natives of a process's end. The latter are weak: a collector
// without them is hosted as well, only its last events may be lost, and the VM waits for its loops.
jint JNICALL JVM_OnLoad(JavaVM* vm, char* options, void* reserved);
__attribute__((weak)) void JNICALL
Java_com_velora_probe_ProbeController_flushNativeProbe(JNIEnv* env, jclass, jint ms);
__attribute__((weak)) jboolean JNICALL Java_com_velora_probe_ProbeController_endWorkers(JNIEnv* env,
                                                                                        jclass,
                                                                                        jint ms);
}

namespace launch {
namespace {

// A dying VM is held for a second at most. The flush may overstep its time by 300 ms, in which what
// could not leave is counted.
constexpr jint kFlushMs = 600;
constexpr jint kEndMs = 100;

__attribute__((format(printf, 1, 2))) void say(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    char text[1024];
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    fprintf(stderr, "Velora: %s\n", text);
}

// Reads VM system properties: they hold what -D said on the command line, in argument files and in
// JAVA_TOOL_OPTIONS.
class SystemProperties {
public:
    explicit SystemProperties(JavaVM* vm) {
        void* opened = nullptr;
        if (vm->GetEnv(&opened, JVMTI_VERSION_11) == JNI_OK)
            jvmti_ = static_cast<jvmtiEnv*>(opened);
    }
    ~SystemProperties() {
        if (jvmti_ != nullptr) jvmti_->DisposeEnvironment();
    }
    SystemProperties(const SystemProperties&) = delete;
    SystemProperties& operator=(const SystemProperties&) = delete;

    std::string operator[](const char* name) const {
        char* value = nullptr;
        if (jvmti_ == nullptr || jvmti_->GetSystemProperty(name, &value) != JVMTI_ERROR_NONE ||
            value == nullptr) {
            return {};
        }
        std::string copy = value;
        jvmti_->Deallocate(reinterpret_cast<unsigned char*>(value));
        return copy;
    }

private:
    jvmtiEnv* jvmti_ = nullptr;
};

std::string environmentVariable(const char* name) {
    const char* value = getenv(name);
    return value == nullptr ? "" : value;
}

std::string ownPath() {
    Dl_info info{};
    return dladdr(reinterpret_cast<void*>(&ownPath), &info) != 0 && info.dli_fname != nullptr
               ? info.dli_fname
               : "";
}

std::string hostName() {
    char name[256] = {};
    return gethostname(name, sizeof name - 1) == 0 ? name : "";
}

std::vector<std::string> processArguments() {
    std::ifstream file("/proc/self/cmdline", std::ios::binary);
    std::vector<std::string> arguments;
    for (std::string argument; std::getline(file, argument, '\0');) arguments.push_back(argument);
    // The VM takes flags from these as well.
    for (const char* variable : {"JAVA_TOOL_OPTIONS", "JDK_JAVA_OPTIONS", "_JAVA_OPTIONS"}) {
        std::istringstream words(environmentVariable(variable));
        for (std::string word; words >> word;) arguments.push_back(word);
    }
    return arguments;
}

bool isUsableFolder(const std::string& path) {
    struct stat found {};
    return stat(path.c_str(), &found) == 0 && S_ISDIR(found.st_mode) &&
           access(path.c_str(), R_OK | X_OK) == 0;
}

void endCollector(JNIEnv* env) {
    if (Java_com_velora_probe_ProbeController_flushNativeProbe != nullptr) {
        Java_com_velora_probe_ProbeController_flushNativeProbe(env, nullptr, kFlushMs);
    }
    if (Java_com_velora_probe_ProbeController_endWorkers != nullptr) {
        Java_com_velora_probe_ProbeController_endWorkers(env, nullptr, kEndMs);
    }
}

// Calls the collector's entry as an old VM would, with the identity where it looks for it. Empty on
// success.
std::string loadCollector(JavaVM* vm, const Identity& who, std::string options) {
    JavaVM* profiled = adapter::bringUp(vm, {.beforeShutDown = endCollector});
    if (profiled == nullptr) return "this VM offers no tool interface";
    const EnvironmentOverlay identity({{"am.home", who.home},
                                       {"am.nodename", who.node},
                                       {"am.appserver", who.server},
                                       {"am.profilename", who.profile}});
    if (JVM_OnLoad(profiled, options.empty() ? nullptr : options.data(), nullptr) != JNI_OK) {
        adapter::agentFailed();
        return "the collector refused to start (its log under " + who.home + "/logs says why)";
    }
    return {};
}

// What a start goes by.
struct World {
    AgentOptions options;
    Identity who;
    std::string javaHome;
    ModuleFlags modules;
};

// True for the first caller only: one collector per process, however many ways lead in.
bool isFirst() {
    static std::atomic<bool> started{false};
    return !started.exchange(true);
}

World lookAround(JavaVM* vm, const char* optionText) {
    AgentOptions options = parseAgentOptions(optionText);
    for (const std::string& item : options.unknown) {
        say("unknown agent option \"%s\" ignored; known: home, node, server, profile, ps, probe, "
            "debug, admin",
            item.c_str());
    }
    const SystemProperties properties(vm);
    Identity who = deriveIdentity(
        options, {.systemProperty = [&](const char* name) { return properties[name]; },
                  .environment = environmentVariable,
                  .libraryPath = ownPath(),
                  .hostName = hostName()});
    return {std::move(options), std::move(who), properties["java.home"],
            moduleFlags(properties["jdk.module.main"], processArguments())};
}

std::string troubleWithHome(const std::string& home) {
    return isUsableFolder(home) ? "" : "the agent home \"" + home + "\" is no readable folder";
}

// Found out before anything of ours runs: an application that stays unmonitored gets one line, and
// is left alone.
std::string reasonAgainstJavaSide(const World& world, const std::string& jar) {
    constexpr char kDoesNotRun[] = "the Java side does not run: ";
    if (leavesOutInstrument(world.modules)) {
        const std::string& main = world.modules.mainModule;
        return kDoesNotRun + (main.empty() ? "--limit-modules" : "module " + main) +
               " may leave out java.instrument; start the application with --add-modules "
               "java.instrument to have it monitored";
    }
    const std::string trouble = troubleWithJavaSide(world.javaHome, jar);
    return trouble.empty() ? "" : kDoesNotRun + trouble;
}

void sayUnmonitored(const std::string& trouble) {
    say("%s; the application runs unmonitored", trouble.c_str());
}

void startWithJavaSide(JavaVM* vm, const char* options, Moment moment) {
    if (!isFirst()) return;
    const World world = lookAround(vm, options);
    const std::string jar = world.who.home + "/lib/velora.jar";
    // With both flags given the VM starts the Java side itself, and once is enough.
    const bool vmStartsJava =
        moment == Moment::kVmStart && javaAgentArguments(processArguments()).has_value();
    std::string trouble = troubleWithHome(world.who.home);
    if (trouble.empty() && !vmStartsJava) trouble = reasonAgainstJavaSide(world, jar);
    if (trouble.empty()) trouble = loadCollector(vm, world.who, world.options.forCollector);
    if (!trouble.empty()) return sayUnmonitored(trouble);
    adapter::agentIsUp();
    if (vmStartsJava) return;
    trouble = startJavaSide(vm, moment, world.javaHome, jar, world.options.forJava);
    if (trouble.empty()) return;
    adapter::agentFailed();
    sayUnmonitored("the Java side does not run: " + trouble);
}

// The Java side runs already and has loaded this library.
void startForJavaSide(JavaVM* vm) {
    if (!isFirst()) return;
    const World world = lookAround(vm, javaAgentArguments(processArguments()).value_or("").c_str());
    std::string trouble = troubleWithHome(world.who.home);
    if (trouble.empty()) trouble = loadCollector(vm, world.who, world.options.forCollector);
    if (!trouble.empty()) return sayUnmonitored(trouble);
    adapter::agentIsUp();
}

// The skin of the entry points: nothing is thrown into the VM.
template <typename Body>
void guarded(Body&& body) noexcept {
    try {
        body();
    } catch (const std::exception& e) {
        say("start-up failed: %s; the application runs unmonitored", e.what());
    } catch (...) {
        say("start-up failed; the application runs unmonitored");
    }
}

}  // namespace
}  // namespace launch

extern "C" {

JNIEXPORT jint JNICALL Agent_OnLoad(JavaVM* vm, char* options, void*) {
    launch::guarded([&] { launch::startWithJavaSide(vm, options, launch::Moment::kVmStart); });
    return JNI_OK;  // always: a monitoring that cannot start must not keep the application from
                    // running
}

JNIEXPORT jint JNICALL Agent_OnAttach(JavaVM* vm, char* options, void*) {
    launch::guarded([&] { launch::startWithJavaSide(vm, options, launch::Moment::kRunningVm); });
    return JNI_OK;
}

// Nothing to take down: the adapter and the collector live as long as the process does.
JNIEXPORT void JNICALL Agent_OnUnload(JavaVM*) {
}

JNIEXPORT jint JNICALL JNI_OnLoad(JavaVM* vm, void*) {
    launch::guarded([&] { launch::startForJavaSide(vm); });
    return JNI_VERSION_1_8;
}
}
