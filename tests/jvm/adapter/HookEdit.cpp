// Edits one text constant of a class file.
#include "HookEdit.h"

#include <stdio.h>
#include <string.h>

#include <atomic>
#include <string>
#include <string_view>

namespace {

std::atomic<int> edited{0};
std::atomic<int> hooked{0};

// A modified-UTF-8 constant: tag 1, two bytes of length, text.
std::string constant(std::string_view text) {
    const char head[] = {1, static_cast<char>(text.size() >> 8), static_cast<char>(text.size())};
    return std::string(head, sizeof head).append(text);
}

void replace(JVMPI_Event& event, const std::string& bytes) {
    auto& hook = event.u.class_load_hook;
    auto* memory = static_cast<unsigned char*>(hook.malloc_f(static_cast<unsigned>(bytes.size())));
    memcpy(memory, bytes.data(), bytes.size());
    hook.new_class_data = memory;
    hook.new_class_data_len = static_cast<jint>(bytes.size());
}

}  // namespace

void editClass(JVMPI_Event& event, JVMPI_Interface& jvmpi) {
    auto& hook = event.u.class_load_hook;
    ++hooked;
    if (hook.new_class_data != hook.class_data || hook.new_class_data_len != hook.class_data_len) {
        puts("FAILED: the new class data are not preset");
    }
    std::string bytes(reinterpret_cast<char*>(hook.class_data),
                      static_cast<std::size_t>(hook.class_data_len));
    const auto has = [&](const char* order) {
        return bytes.find(constant(order)) != std::string::npos;
    };
    if (has("hook:grow")) {
        const std::string old = constant("hook:grow");
        bytes.replace(bytes.find(old), old.size(), constant("the agent put a longer text here"));
        replace(event, bytes);
    } else if (has("hook:null")) {
        hook.new_class_data = nullptr;
        hook.new_class_data_len = 0;
    } else if (has("hook:off")) {
        jvmpi.DisableEvent(JVMPI_EVENT_CLASS_LOAD_HOOK, nullptr);
    } else if (has("hook:keep")) {
        replace(event, bytes);
    } else {
        return;
    }
    ++edited;
}

int editedClasses() {
    return edited;
}

int hookedClasses() {
    return hooked;
}

extern "C" {
JNIEXPORT jint JNICALL Java_TestAgent_editedClasses(JNIEnv*, jclass) {
    return editedClasses();
}
JNIEXPORT jint JNICALL Java_TestAgent_hookedClasses(JNIEnv*, jclass) {
    return hookedClasses();
}
}
