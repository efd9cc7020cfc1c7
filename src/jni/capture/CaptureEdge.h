// The skin of the natives that capture: as atJniEdge(), and what could not be captured is counted.
#pragma once

#include <new>
#include <utility>

#include "event/LossBook.h"
#include "foundation/JniEdge.h"

namespace capture {

// For a body that makes at most one event and hands it to a queue as its last act that can fail:
// an event that memory was too short for is one in the book of losses.
template <typename Body>
auto counted(Body&& body) {
    try {
        return std::forward<Body>(body)();
    } catch (const std::bad_alloc&) {
        LossBook::add(Loss::noMemory, 1);
        throw;
    }
}

template <typename Result, typename Body>
Result atCaptureEdge(const char* native, Result onFailure, Body&& body) noexcept {
    return atJniEdge(native, onFailure, [&] { return counted(body); });
}

template <typename Body>
void atCaptureEdge(const char* native, Body&& body) noexcept {
    atJniEdge(native, [&] { counted(body); });
}

}  // namespace capture
