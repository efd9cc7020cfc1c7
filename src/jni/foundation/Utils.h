// Small helpers that every floor uses.
#pragma once

#include <jni.h>

#include <cstdint>

class Utils {
public:
    // A copy in a new array (caller: delete[]); null in gives null.
    static char* cstrdup(const char* text);
    // The Java string's modified UTF-8 in a new array (caller: delete[]); null for a null string or
    // when the VM has no memory (the exception is cleared).
    static char* java2c_string(JNIEnv* env, jstring text);
    // The local time as "yyyy/mm/dd hh:mm:ss" in a new array of 30 (caller: delete[]).
    static char* getTime();
    // Writes text and " \n" to standard output; nothing for null.
    static void log(const char* text);
    // The first prime of the table greater than n, or n itself when none is (n >= 1259).
    static int getNextBiggerPrimeNumber(int n);

    static const std::int16_t listOfPrimes_[205];
};

// Describes (prints) and clears a pending Java exception; true when there was one.
bool handleJavaException(JNIEnv* env);
