// The toolkit's C interface. Nothing is configured yet: every object is unknown, so every call is the one
// for a null handle.
#include "qlog/qlog.h"

#include <cstdlib>

#define QLG_EXPORT extern "C" __attribute__((visibility("default")))

QLG_EXPORT int QlgOpenToolkit(const char*) { return 0; }
QLG_EXPORT void QlgCloseToolkit(void) {}
QLG_EXPORT QlgHandle QlgGetObject(const char*, const char*) { return nullptr; }
QLG_EXPORT void QlgReleaseObject(QlgHandle) {}
QLG_EXPORT char* QlgGetObjProp(QlgHandle, const char*, int* exists) {
    if (exists != nullptr) *exists = 0;
    return nullptr;
}
QLG_EXPORT void QlgSetObjProp(QlgHandle, const char*, const char*) {}
QLG_EXPORT void QlgSetObjPropInt(QlgHandle, const char*, int) {}
QLG_EXPORT int QlgIsLoggable(QlgHandle, int) { return 0; }
QLG_EXPORT void QlgSetLevelListener(void (*changed)(void)) {
    if (changed != nullptr) changed();
}
QLG_EXPORT void QlgLogDebugMax(QlgHandle, const char*, const char*, int, const char*, ...) {}
QLG_EXPORT void QlgLogDebugMid(QlgHandle, const char*, const char*, int, const char*, ...) {}
QLG_EXPORT void QlgLogDebugMin(QlgHandle, const char*, const char*, int, const char*, ...) {}
QLG_EXPORT void QlgLogInfo(QlgHandle, const char*, int, int, const char*, ...) {}
QLG_EXPORT void QlgLogWarn(QlgHandle, const char*, int, int, const char*, ...) {}
QLG_EXPORT void QlgLogError(QlgHandle, const char*, int, int, const char*, ...) {}
QLG_EXPORT void QlgLogFatal(QlgHandle, const char*, int, int, const char*, ...) {}
QLG_EXPORT void QlgLogText(QlgHandle, const char*, int) {}
QLG_EXPORT void QlgInitFFDCExtensions(void) {}
QLG_EXPORT char* QlgFFDCTriggerHandlerGetBaseDir(QlgHandle) { return nullptr; }
QLG_EXPORT void QlgFFDCTriggerHandlerSetBaseDir(QlgHandle, const char*) {}
QLG_EXPORT char* QlgFileCopyHandlerGetFiles(QlgHandle) { return nullptr; }
QLG_EXPORT void QlgFileCopyHandlerSetFiles(QlgHandle, const char*) {}
QLG_EXPORT void ZosMemoryFree(void* memory) { std::free(memory); }
