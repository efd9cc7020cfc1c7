// Copies Java strings into the texts that events carry, the way that measured best on the request
// path: the characters go to a stack buffer in one JNI call, then into an array of the exact
// length.
//
// Texts are modified UTF-8. A text longer than its limit is cut between two characters, and never
// inside a surrogate pair. No Java exception is left pending.
#pragma once

#include <jni.h>

#include <cstddef>

namespace javatext {

struct Text {
    char* chars;  // owned by the receiver unless it is the shared empty text; never null
    int length;   // bytes with the terminator
};

// A text for an event (EventText.h), of at most limit bytes with the terminator. A null or empty
// string gives the shared empty text. With atLeast an array (array delete) of that many bytes at
// least, filled up with zeros.
[[nodiscard]] Text copy(JNIEnv* env, jstring text, int limit, int atLeast = 0);

// Whether a Java string is this plain ASCII text. Strings of another length cost one JNI call.
bool equals(JNIEnv* env, jstring text, const char* ascii, jsize length);

// How many bytes of a text to keep so that at most `room` remain and no character or surrogate pair
// is cut.
std::size_t cutPoint(const char* text, std::size_t length, std::size_t room);

}  // namespace javatext
