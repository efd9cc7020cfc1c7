// See VeloraBase.h.
#include "foundation/VeloraBase.h"

#include <new>
#include <string>

#include "foundation/Log.h"
#include "foundation/Utils.h"

VeloraBase::VeloraBase(const char* clsName) : clsName_(Utils::cstrdup(clsName)) {
}

VeloraBase::VeloraBase(const VeloraBase& other) : clsName_(Utils::cstrdup(other.clsName_)) {
}

VeloraBase& VeloraBase::operator=(const VeloraBase& other) {
    if (this == &other) return *this;
    delete[] clsName_;
    clsName_ = nullptr;  // stays so when there is no memory for the copy
    clsName_ = Utils::cstrdup(other.clsName_);
    return *this;
}

VeloraBase::~VeloraBase() {
    delete[] clsName_;
    clsName_ = nullptr;
}

namespace {

using Writer = void (*)(QlgHandle, const char*, int, int, const char*, ...);

// These lines are the tracer's, not the message logger's: no catalogue knows them.
void writeToTracer(Writer write, const char* clsName, const char* file, int line,
                   const char* message) try {
    std::string text = "[";
    text.append(clsName == nullptr ? "" : clsName).append(" (");
    text.append(file == nullptr ? "" : file).append("@").append(std::to_string(line));
    text.append(")] ").append(message == nullptr ? "" : message).append(" \n");
    write(logdetail::tracer(), nullptr, 0, 0, "%s", static_cast<int>(QLG_STRING), text.c_str(), 0);
} catch (const std::bad_alloc&) {
    // The line is missing; whoever logs does not fail for it.
}

}  // namespace

void VeloraBase::_log(const char* file, int line, const char* message) const {
    if (traceOn(kDebugMin))
        writeDebug(kDebugMin, file, clsName_, line, "%s", message == nullptr ? "" : message);
}

void VeloraBase::_logDebug(const char* file, int line, const char* message) const {
    if (traceOn(kDebugMax))
        writeDebug(kDebugMax, file, clsName_, line, "%s", message == nullptr ? "" : message);
}

void VeloraBase::_logInfo(const char* file, int line, const char* message) const {
    writeToTracer(QlgLogInfo, clsName_, file, line, message);
}

void VeloraBase::_logWarn(const char* file, int line, const char* message) const {
    writeToTracer(QlgLogWarn, clsName_, file, line, message);
}

void VeloraBase::_logError(const char* file, int line, const char* message) const {
    writeToTracer(QlgLogError, clsName_, file, line, message);
}
