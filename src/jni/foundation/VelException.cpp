// See VelException.h.
#include "foundation/VelException.h"

#include <cstdlib>
#include <cstring>

#include "foundation/Log.h"

namespace {

char* copyOf(const char* text) {
    return text == nullptr ? nullptr : strdup(text);
}

}  // namespace

VelException::VelException(const char* message)
    : VeloraBase("VelException"), message_(copyOf(message)) {
    VEL_TRACE("VelException(const char*)");
    _logError(__FILE_NAME__, __LINE__, message);
}

VelException::VelException(const VelException& other)
    : VeloraBase(other), message_(copyOf(other.message_)) {
}

VelException& VelException::operator=(const VelException& other) {
    if (this == &other) return *this;
    VeloraBase::operator=(other);
    std::free(message_);
    message_ = copyOf(other.message_);
    return *this;
}

VelException::~VelException() {
    std::free(message_);
}
