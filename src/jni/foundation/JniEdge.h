// The skin of every native: nothing is thrown into the VM.
#pragma once

#include <exception>
#include <utility>

#include "foundation/VelException.h"

// Logs the failure of a native, once per native (1102): a native that fails on every request must
// not fill the log.
void noteNativeFailure(const char* native, const char* reason) noexcept;

// Runs body so that no C++ exception leaves it; a failure is logged and onFailure returned.
template <typename Result, typename Body>
Result atJniEdge(const char* native, Result onFailure, Body&& body) noexcept {
    try {
        return std::forward<Body>(body)();
    } catch (const std::exception& e) {
        noteNativeFailure(native, e.what());
    } catch (const VelException& e) {
        noteNativeFailure(native, e.getMessage());
    } catch (...) {
        noteNativeFailure(native, "unknown exception");
    }
    return onFailure;
}

template <typename Body>
void atJniEdge(const char* native, Body&& body) noexcept {
    try {
        std::forward<Body>(body)();
    } catch (const std::exception& e) {
        noteNativeFailure(native, e.what());
    } catch (const VelException& e) {
        noteNativeFailure(native, e.getMessage());
    } catch (...) {
        noteNativeFailure(native, "unknown exception");
    }
}
