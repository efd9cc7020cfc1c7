// The collector's own exception: making one logs its message as an error. It never crosses into the
// VM (atJniEdge stops it).
#pragma once

#include "foundation/VeloraBase.h"

class VelException : public VeloraBase {
public:
    explicit VelException(const char* message);  // null counts as an empty message
    VelException(const VelException& other);     // does not log again
    VelException& operator=(const VelException& other);
    ~VelException() override;

    const char* getMessage() const { return message_ == nullptr ? "" : message_; }

private:
    char* message_;  // owned, from strdup; null when there was no memory
};
