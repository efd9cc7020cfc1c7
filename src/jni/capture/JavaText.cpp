#include "capture/JavaText.h"

#include <algorithm>
#include <cstring>
#include <memory>

#include "event/EventText.h"

namespace javatext {
namespace {

constexpr std::size_t kStackBytes = 1536;  // holds the region of 511 characters
constexpr std::size_t kBytesPerUnit = 3;   // modified UTF-8's most for one UTF-16 unit

bool isContinuation(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0) == 0x80;
}

// True when text ends in the first half of a surrogate pair: ED A0..AF xx.
bool endsInHighSurrogate(const char* text, std::size_t length) {
    return length >= 3 && static_cast<unsigned char>(text[length - 3]) == 0xED &&
           (static_cast<unsigned char>(text[length - 2]) & 0xF0) == 0xA0;
}

// The first units of a Java string, terminated; returns their bytes. The buffer has room for all of
// them.
std::size_t region(JNIEnv* env, jstring text, jsize units, char* buffer) {
    // Only VMs of today promise to terminate the region. Every unit gives at least one byte, so
    // what follows the shortest possible text is cleared before, and the first zero behind it is
    // the end.
    std::memset(buffer + units, 0, static_cast<std::size_t>(units) * (kBytesPerUnit - 1) + 1);
    env->GetStringUTFRegion(text, 0, units, buffer);
    return static_cast<std::size_t>(units) + std::strlen(buffer + units);
}

Text keep(const char* text, std::size_t length, std::size_t atLeast) {
    const std::size_t size = std::max(length + 1, atLeast);
    char* const chars = atLeast > 0 ? new char[size] : eventtext::allocate(size);
    std::memcpy(chars, text, length);
    std::memset(chars + length, 0, size - length);
    return {chars, static_cast<int>(length + 1)};
}

}  // namespace

std::size_t cutPoint(const char* text, std::size_t length, std::size_t room) {
    if (length <= room) return length;
    while (room > 0 && isContinuation(text[room])) --room;
    return endsInHighSurrogate(text, room) ? room - 3 : room;
}

Text copy(JNIEnv* env, jstring text, int limit, int atLeast) {
    const auto minimum = static_cast<std::size_t>(std::max(atLeast, 0));
    const jsize whole = text == nullptr ? 0 : env->GetStringLength(text);
    if (whole <= 0 || limit <= 1) {
        if (minimum > 0) return keep("", 0, minimum);
        return {emptyText(), 1};
    }
    // limit units are at least limit bytes, more than is kept: a text that goes on behind them is
    // cut.
    const jsize units = std::min(whole, static_cast<jsize>(limit));
    const std::size_t needed = static_cast<std::size_t>(units) * kBytesPerUnit + 1;
    char onStack[kStackBytes];
    std::unique_ptr<char[]> onHeap;
    char* buffer = onStack;
    if (needed > sizeof onStack) {
        onHeap.reset(new char[needed]);
        buffer = onHeap.get();
    }
    const std::size_t bytes = region(env, text, units, buffer);
    const std::size_t length = cutPoint(buffer, bytes, static_cast<std::size_t>(limit) - 1);
    return keep(buffer, length, minimum);
}

bool equals(JNIEnv* env, jstring text, const char* ascii, jsize length) {
    if (text == nullptr || env->GetStringLength(text) != length) return false;
    char buffer[kStackBytes];
    if (static_cast<std::size_t>(length) * kBytesPerUnit + 1 > sizeof buffer) return false;
    return region(env, text, length, buffer) == static_cast<std::size_t>(length) &&
           std::memcmp(buffer, ascii, static_cast<std::size_t>(length)) == 0;
}

}  // namespace javatext
