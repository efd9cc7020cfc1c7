// Passes class files to the agent and its replacements to the VM.
#include "jvmpi/ClassHook.h"

#include "jvmpi/EventSwitch.h"

namespace adapter {
namespace {

// The VM frees new class files with its own deallocator, so they must come from its allocator.
void* allocateForVm(unsigned size) {
    unsigned char* memory = nullptr;
    return vmti()->Allocate(size, &memory) == JVMTI_ERROR_NONE ? memory : nullptr;
}

}  // namespace

bool followClassHook() {
    const bool on = isEventOn(JVMPI_EVENT_CLASS_LOAD_HOOK);
    static bool capable = false;  // changed under the switch's lock only
    if (on && !capable) {
        capable = acquire(
            [](jvmtiCapabilities& wanted) { wanted.can_generate_all_class_hook_events = 1; });
    }
    return setNotified(JVMTI_EVENT_CLASS_FILE_LOAD_HOOK, on);
}

void JNICALL onClassFileLoadHook(jvmtiEnv*, JNIEnv* env, jclass redefined, jobject, const char*,
                                 jobject, jint length, const unsigned char* bytes, jint* newLength,
                                 unsigned char** newBytes) {
    // JVMPI knows a class's first definition only.
    if (redefined != nullptr || !isEventOn(JVMPI_EVENT_CLASS_LOAD_HOOK)) return;
    JVMPI_Event event{};
    event.event_type = JVMPI_EVENT_CLASS_LOAD_HOOK;
    event.env_id = env;
    auto& hook = event.u.class_load_hook;
    // An agent replaces the pointer, it does not write through it: the bytes are the VM's.
    hook.class_data = const_cast<unsigned char*>(bytes);
    hook.class_data_len = length;
    hook.new_class_data = hook.class_data;
    hook.new_class_data_len = length;
    hook.malloc_f = allocateForVm;
    sendEvent(event);
    if (hook.new_class_data == nullptr || hook.new_class_data == hook.class_data) return;
    *newBytes = hook.new_class_data;
    *newLength = hook.new_class_data_len;
}

}  // namespace adapter
