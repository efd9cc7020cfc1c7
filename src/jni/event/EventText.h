// The texts that events carry: arrays of char, made with array new by the builders, freed by their
// event.
//
// Half of all events (every END) carry empty texts. They all point to one shared empty array
// instead of owning a byte each, so whoever frees or replaces a text of an event goes through
// freeText().
#pragma once

// Eight zero bytes: also whoever takes four token bytes from an empty name stays inside. Never
// written.
extern char kEmptyText[8];

inline char* emptyText() {
    return kEmptyText;
}

// Frees an owned text and forgets it; the shared empty text and null are left alone.
inline void freeText(char*& text) {
    if (text != kEmptyText) delete[] text;
    text = nullptr;
}
