// See Utils.h.
#include "foundation/Utils.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <iterator>
#include <memory>
#include <new>

#include "foundation/Console.h"
#include "foundation/Log.h"

// clang-format off
const std::int16_t Utils::listOfPrimes_[205] = {
    2, 3, 5, 7, 11, 13, 17, 19, 23, 29, 31, 37, 41, 43,
    47, 53, 59, 61, 67, 71, 73, 79, 83, 89, 97, 101, 103, 107,
    109, 113, 127, 131, 137, 139, 149, 151, 157, 163, 167, 173, 179, 181,
    191, 193, 197, 199, 211, 223, 227, 229, 233, 239, 241, 251, 257, 263,
    269, 271, 277, 281, 283, 293, 307, 311, 313, 317, 331, 337, 347, 349,
    353, 359, 367, 373, 379, 383, 389, 397, 401, 409, 419, 421, 431, 433,
    439, 443, 449, 457, 461, 463, 467, 479, 487, 491, 499, 503, 509, 521,
    523, 541, 547, 557, 563, 569, 571, 577, 587, 593, 599, 601, 607, 613,
    617, 619, 631, 641, 643, 647, 653, 659, 661, 673, 677, 683, 691, 701,
    709, 719, 727, 733, 739, 743, 751, 757, 761, 769, 773, 787, 797, 809,
    811, 821, 823, 827, 829, 839, 853, 857, 859, 863, 877, 881, 883, 887,
    907, 911, 919, 929, 937, 941, 947, 953, 967, 971, 977, 983, 991, 997,
    1009, 1013, 1019, 1021, 1031, 1033, 1039, 1049, 1051, 1061, 1063, 1069, 1087, 1091,
    1093, 1097, 1103, 1109, 1117, 1123, 1129, 1151, 1153, 1163, 1171, 1181, 1187, 1193,
    1201, 1213, 1217, 1223, 1229, 1231, 1237, 1249, 1259,
};
// clang-format on

char* Utils::cstrdup(const char* text) {
    if (text == nullptr) return nullptr;
    const std::size_t size = std::strlen(text) + 1;
    auto* const copy = new char[size];
    std::memcpy(copy, text, size);
    return copy;
}

char* Utils::java2c_string(JNIEnv* env, jstring text) {
    if (env == nullptr || text == nullptr) return nullptr;
    const jsize units = env->GetStringLength(text);
    const jsize bytes = env->GetStringUTFLength(text);
    std::unique_ptr<char[]> copy(new (std::nothrow) char[static_cast<std::size_t>(bytes) + 1]);
    if (copy == nullptr) return nullptr;
    // A region is copied straight into our memory; GetStringUTFChars would have the VM allocate
    // first.
    env->GetStringUTFRegion(text, 0, units, copy.get());
    if (handleJavaException(env)) return nullptr;
    copy[static_cast<std::size_t>(bytes)] = '\0';  // not every VM closes a region
    return copy.release();
}

char* Utils::getTime() {
    constexpr std::size_t kSize = 30;
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    auto* const text = new char[kSize];
    if (std::strftime(text, kSize, "%Y/%m/%d %H:%M:%S", &local) == 0) text[0] = '\0';
    return text;
}

void Utils::log(const char* text) {
    if (text != nullptr) std::fprintf(console::out(), "%s \n", text);
}

int Utils::getNextBiggerPrimeNumber(int n) {
    const auto* const bigger =
        std::upper_bound(std::begin(listOfPrimes_), std::end(listOfPrimes_), n);
    return bigger == std::end(listOfPrimes_) ? n : *bigger;
}

bool handleJavaException(JNIEnv* env) {
    if (env == nullptr || !env->ExceptionCheck()) return false;
    env->ExceptionDescribe();
    env->ExceptionClear();
    return true;
}
