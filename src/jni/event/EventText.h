// The texts that events carry, filled by the builders, freed by their event.
//
// A text's address tells where its memory goes, so that events keep plain pointers and the request
// path neither pays a general heap for a text that another thread frees, nor copies what repeats:
//
//     address & 3   from                         goes to
//     0             array new (16-byte aligned)  array delete
//     1, 3          a pooled block of 64, 128 B  its pool; the text begins 1 or 3 bytes inside
//     2             the shared empty text, or    stays for ever
//                   a registered one
//
// Half of all events (every END) carry empty texts; they all point to the shared one. Whoever frees
// or replaces a text of an event goes through freeText().
#pragma once

#include <cstddef>
#include <cstdint>
#include <new>

#include "foundation/BlockPool.h"

namespace eventtext {

static_assert(__STDCPP_DEFAULT_NEW_ALIGNMENT__ >= 4);

enum Origin : std::uintptr_t { kHeap = 0, kSmallBlock = 1, kKept = 2, kMediumBlock = 3 };

// The shared empty text, eight zero bytes: whoever takes four token bytes from an empty name stays
// inside. Never written.
struct alignas(16) Empty {
    char before[kKept];
    char text[8];
};
extern Empty empty;

// Room for a text of so many bytes, terminator included. Throws std::bad_alloc.
inline char* allocate(std::size_t bytes) {
    if (bytes + kSmallBlock <= 64)
        return static_cast<char*>(BlockPool<64>::allocate()) + kSmallBlock;
    if (bytes + kMediumBlock <= 128)
        return static_cast<char*>(BlockPool<128>::allocate()) + kMediumBlock;
    return new char[bytes];
}

inline bool isKept(const char* text) {
    return (reinterpret_cast<std::uintptr_t>(text) & 3) == kKept;
}

inline void release(char* text) noexcept {
    switch (reinterpret_cast<std::uintptr_t>(text) & 3) {
        case kSmallBlock:
            return BlockPool<64>::release(text - kSmallBlock);
        case kMediumBlock:
            return BlockPool<128>::release(text - kMediumBlock);
        case kKept:
            return;
        default:
            delete[] text;
    }
}

}  // namespace eventtext

inline char* emptyText() {
    return eventtext::empty.text;
}

// Frees an owned text and forgets it; a text that stays for ever and null are left alone.
inline void freeText(char*& text) noexcept {
    if (text != emptyText()) eventtext::release(text);
    text = nullptr;
}
