// One text that a call tells of itself: a Java string to be copied, or a registered text by its
// number (event/RegisteredTexts.h), to which the event points without copying anything.
//
// Threads: lives on the stack of a native; the string is the caller's reference.
#pragma once

#include <jni.h>

#include <array>

#include "capture/JavaText.h"
#include "event/RegisteredTexts.h"

struct CallText {
    // NOLINTNEXTLINE(google-explicit-constructor): a string is the usual text
    CallText(jstring string = nullptr) : text(string) {}
    static CallText number(jint registered) {
        CallText made;
        made.registered = registered;
        return made;
    }
    bool isNull() const { return text == nullptr && registered == 0; }

    // The text for an event, and its bytes with the terminator: 1 for a registered one, of which
    // the event holds none.
    javatext::Text copy(JNIEnv* env, int limit) const {
        if (registered != 0) return {RegisteredTexts::get(registered), 1};
        return javatext::copy(env, text, limit);
    }

    jstring text;
    jint registered = 0;  // 0: the string counts
};

// What a call's begin tells; which text is which field of its record is the kind's own.
using CallTexts = std::array<CallText, 4>;
