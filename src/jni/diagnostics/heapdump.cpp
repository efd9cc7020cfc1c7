#include "diagnostics/heapdump.h"

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "capture/CaptureEdge.h"
#include "capture/EventUtils.h"
#include "diagnostics/HeapSummary.h"
#include "diagnostics/HeapWalker.h"
#include "foundation/Globals.h"
#include "foundation/Identity.h"
#include "foundation/JniEdge.h"
#include "foundation/Log.h"
#include "foundation/ProbeState.h"
#include "foundation/PropertyMgr.h"
#include "foundation/Utils.h"
#include "os/RegularFile.h"
#include "transport/MemoryMonitor.h"

std::uint32_t heapDumpCount = 0;
char* ClzSumStr = nullptr;

namespace {

constexpr int kDefaultMaxHeap = 128;       // megabytes
constexpr long kLargestMaxHeap = 4194304;  // megabytes: 4 TB
constexpr jlong kUnknown = -1;

enum SnapshotResult : jint {
    kDone = 0,
    kNotEnoughMemory = 1,
    kBusy = 2,
    kAppendFailed = 3,
    kNoDump = 4
};

// Set while an analysis runs: the walker's tables, the summary and the answer are global.
std::atomic<bool> analysing{false};

jint answer = JVMPI_SUCCESS;  // of the VM to the last request; guarded by analysing

jint resultOf(jint answerOfVm) {
    if (answerOfVm == JVMPI_SUCCESS) return kDone;
    return answerOfVm == JVMPI_NOT_AVAILABLE ? kNoDump : kNotEnoughMemory;
}

// As atoi reads it, with numbers that no int holds kept at its ends.
int leadingNumber(const char* text) {
    const long value = std::strtol(text, nullptr, 10);
    return static_cast<int>(std::clamp<long>(value, INT_MIN, INT_MAX));
}

// Runtime's totalMemory() or freeMemory() in megabytes; kUnknown when Java cannot tell.
jlong runtimeMegabytes(JNIEnv* env, jclass type, jobject runtime, const char* method) {
    jlong value = kUnknown;
    if (const jmethodID id = env->GetMethodID(type, method, "()J"); id != nullptr)
        value = env->CallLongMethod(runtime, id) / 1000000;
    return handleJavaException(env) ? kUnknown : value;
}

// Megabytes of the Java heap in use; 0 when Java cannot tell.
jlong usedMegabytes(JNIEnv* env) {
    jlong total = kUnknown;
    jlong free = kUnknown;
    const jclass type = env->FindClass("java/lang/Runtime");
    const jmethodID getRuntime =
        type == nullptr ? nullptr
                        : env->GetStaticMethodID(type, "getRuntime", "()Ljava/lang/Runtime;");
    const jobject runtime =
        getRuntime == nullptr ? nullptr : env->CallStaticObjectMethod(type, getRuntime);
    if (!handleJavaException(env) && runtime != nullptr) {
        total = runtimeMegabytes(env, type, runtime, "totalMemory");
        free = runtimeMegabytes(env, type, runtime, "freeMemory");
    }
    if (runtime != nullptr) env->DeleteLocalRef(runtime);
    if (type != nullptr) env->DeleteLocalRef(type);
    if (total == kUnknown || free == kUnknown || total <= free) return 0;
    VEL_DEBUG_MIN("testHeapEnvironment", "Checking JVM memory: total = %d free = %d used = %d",
                  total, free, total - free);
    return total - free;
}

// Megabytes: the setting, else the -Xmx number.
jlong configuredMaximum() {
    const int maxHeap = maxHeapFromCommandLine(Identity::vmArguments());
    const PropertyMgr* const properties = propMgr_.load(std::memory_order_acquire);
    return properties == nullptr ? maxHeap
                                 : properties->getBoundedProperty("internal.max.heapdump.size",
                                                                  maxHeap, 1, kLargestMaxHeap);
}

// Appends the summary to the StringBuffer; false when Java refuses.
bool appendSummary(JNIEnv* env, jobject buffer, const char* summary) {
    const jclass type = env->GetObjectClass(buffer);
    const jmethodID append =
        env->GetMethodID(type, "append", "(Ljava/lang/String;)Ljava/lang/StringBuffer;");
    const jstring text = append == nullptr ? nullptr : env->NewStringUTF(summary);
    const jobject same = text == nullptr ? nullptr : env->CallObjectMethod(buffer, append, text);
    const bool failed = handleJavaException(env);
    for (const jobject local : {same, static_cast<jobject>(text), static_cast<jobject>(type)})
        if (local != nullptr) env->DeleteLocalRef(local);
    return !failed && text != nullptr;
}

using Summary = std::unique_ptr<char, void (*)(void*)>;

// The result of a dump; its summary is taken out of the global, null when there was no memory for
// it.
jint takeSummary(Summary* summary) {
    getHeapDump();
    summary->reset(ClzSumStr);
    ClzSumStr = nullptr;
    return resultOf(answer);
}

jint takeSnapshot(JNIEnv* env, jobject buffer) {
    if (const int refused = testHeapEnvironment(env); refused != 0) return refused;
    if (analysing.exchange(true, std::memory_order_acquire)) return kBusy;
    Summary summary(nullptr, std::free);
    jint result = kDone;
    {
        struct Release {  // on a throw, too: else every later request would find one running
            ~Release() { analysing.store(false, std::memory_order_release); }
        } const release;
        result = takeSummary(&summary);
    }
    if (result != kDone) return result;
    if (summary == nullptr) return kDone;  // no memory for the text: nothing is appended
    if (buffer == nullptr) return kAppendFailed;
    return appendSummary(env, buffer, summary.get()) ? kDone : kAppendFailed;
}

void appendAllocation(JNIEnv* env, const char* native, EventSubType phase, jint methodId,
                      jint lineNumber, jstring className) {
    capture::atCaptureEdge(native, [&] {
        if (!MemoryMonitor::reachedULimit(env))
            EventUtils::appendHeapEvent(env, phase, methodId, lineNumber, className);
    });
}

}  // namespace

std::size_t getSignatureTypeSize(char signature) {
    switch (signature) {
        case 'Z':
        case 'B':
            return 1;
        case 'C':
        case 'S':
            return 2;
        case 'I':
        case 'F':
            return 4;
        case 'J':
        case 'D':
        case 'L':
        case '[':
            return 8;
        default:
            return 0;
    }
}

int maxHeapFromCommandLine(const std::vector<std::string>& arguments) {
    int megabytes = 0;
    for (const std::string& argument : arguments)
        if (const std::size_t at = argument.find("-Xmx"); at != std::string::npos)
            megabytes = leadingNumber(argument.c_str() + at + 4);
    return megabytes == 0 ? kDefaultMaxHeap : megabytes;
}

std::int64_t availableMemory(const char* meminfo) {
    std::FILE* const file = os::fopenRegular(meminfo, "r");
    if (file == nullptr) return kUnknown;
    long long kilobytes = kUnknown;
    char line[256];
    while (kilobytes == kUnknown && std::fgets(line, sizeof line, file) != nullptr)
        if (std::sscanf(line, "MemAvailable: %lld kB", &kilobytes) != 1) kilobytes = kUnknown;
    std::fclose(file);
    return kilobytes < 0 ? kUnknown : kilobytes * 1024;
}

bool memoryCanHold(std::int64_t bytes, std::int64_t available) {
    if (bytes < 0 || (available != kUnknown && bytes > available)) return false;
    // Volatile: a compiler may leave out memory that nobody uses, and the trial is the whole point.
    void* volatile block = std::malloc(static_cast<std::size_t>(bytes));
    const bool had = block != nullptr;
    std::free(block);
    return had || bytes == 0;
}

int testHeapEnvironment(JNIEnv* env) {
    VEL_TRACE("testHeapEnvironment(JNIEnv*)");
    jlong maximum = configuredMaximum();
    if (const jlong used = usedMegabytes(env); used > maximum) maximum = used;
    const double kilobytes = static_cast<double>(maximum) * 1.6 * 1024;
    const auto bytes = static_cast<std::int64_t>(1024 * kilobytes);
    VEL_DEBUG_MIN("testHeapEnvironment", "Maximum Heapdump size considered is %ld (bytes)", bytes);
    return memoryCanHold(bytes, availableMemory("/proc/meminfo")) ? kDone : kNotEnoughMemory;
}

int getHeapDump() {
    VEL_TRACE("getHeapDump()");
    const JVMPI_Interface* const vm = jvmpi.load(std::memory_order_acquire);
    answer = JVMPI_NOT_AVAILABLE;
    if (vm == nullptr) return 0;
    if (vm->NotifyEvent == nullptr)
        ProbeState::installDispatcher(jvmpi.load(std::memory_order_acquire));
    JVMPI_HeapDumpArg argument{JVMPI_DUMP_LEVEL_2};
    answer = vm->RequestEvent(JVMPI_EVENT_HEAP_DUMP, &argument);
    VEL_DEBUG_MIN("getHeapDump", "RequestEvent finishes (ret=%d)", answer);
    return 0;
}

char* readHeapDump(const char* begin, const char* end) {
    VEL_TRACE("readHeapDump(char*, char*)");
    walkHeapDump(begin, end);
    char* const summary = createClassSummaryString();
    if (summary != nullptr)
        VEL_DEBUG_MIN("readHeapDump", "{%s} len=%d", summary, std::strlen(summary));
    releaseHeapTables();
    return summary;
}

void processHeapDump(char* begin, char* end) {
    VEL_TRACE("processHeapDump(char*, char*)");
    std::free(ClzSumStr);  // of a dump that nobody fetched
    ClzSumStr = nullptr;
    // The VM's frames stand between this and the native: nothing may be thrown through them.
    atJniEdge("processHeapDump", [&] { ClzSumStr = readHeapDump(begin, end); });
    ++heapDumpCount;
}

jint Java_com_velora_command_heap_HeapUtil_testHeapDumpEnvironmentNative(JNIEnv* env, jobject) {
    VEL_TRACE(
        "Java_com_velora_command_heap_HeapUtil_testHeapDumpEnvironmentNative(JNIEnv*, jobject)");
    return atJniEdge("testHeapDumpEnvironmentNative", static_cast<jint>(kNotEnoughMemory),
                     [&]() -> jint { return testHeapEnvironment(env); });
}

jint Java_com_velora_command_heap_HeapUtil_getHeapSnapShotData(JNIEnv* env, jobject,
                                                               jobject buffer) {
    VEL_TRACE(
        "Java_com_velora_command_heap_HeapUtil_getHeapSnapShotData(JNIEnv*, jobject, jobject)");
    return atJniEdge("getHeapSnapShotData", static_cast<jint>(kNotEnoughMemory),
                     [&] { return takeSnapshot(env, buffer); });
}

void Java_com_velora_probe_heap_HeapAnalysisRuntime_nativeHeapAllocationStart(JNIEnv* env, jclass,
                                                                              jint methodId,
                                                                              jint lineNumber,
                                                                              jstring className) {
    VEL_TRACE(
        "Java_com_velora_probe_heap_HeapAnalysisRuntime_nativeHeapAllocationStart(JNIEnv*, jclass, "
        "jint, jint, jstring)");
    appendAllocation(env, "nativeHeapAllocationStart", START, methodId, lineNumber, className);
}

void Java_com_velora_probe_heap_HeapAnalysisRuntime_nativeHeapAllocationEnd(JNIEnv* env, jclass,
                                                                            jint methodId,
                                                                            jint lineNumber,
                                                                            jstring className) {
    VEL_TRACE(
        "Java_com_velora_probe_heap_HeapAnalysisRuntime_nativeHeapAllocationEnd(JNIEnv*, jclass, "
        "jint, jint, jstring)");
    appendAllocation(env, "nativeHeapAllocationEnd", END, methodId, lineNumber, className);
}
