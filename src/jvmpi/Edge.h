// The skin of everything that the VM or the agent calls: no C++ exception leaves it.
#pragma once

#include <utility>

namespace adapter {

// Exceptions here can only mean exhausted memory; the caller sees the documented failure.
template <typename Result, typename Body>
Result atEdge(Result onFailure, Body&& body) noexcept {
    try {
        return std::forward<Body>(body)();
    } catch (...) {
        return onFailure;
    }
}

template <typename Body>
void atEdge(Body&& body) noexcept {
    try {
        std::forward<Body>(body)();
    } catch (...) {
    }
}

}  // namespace adapter
