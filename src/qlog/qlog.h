// The component logging toolkit: catalogued operator messages, developer trace at three depths,
// rotating files, first-failure data capture. Plain C, so that any library can use it.
//
// Every call is thread-safe, never throws, and does nothing (reports not loggable, returns null)
// for a null handle or while no configuration has been opened.
//
// Levels: a record is written when its level is at or above the level of its object.
// Typed arguments: pairs of a type code and a value, closed by a 0, as in
//     QlgLogInfo(logger, "catalogue", 1, 1070, "Using property file %s", QLG_STRING, path, 0);
// Formats name their operands in order ("%s", "%d", "%ld", "%p", "%X" ...) or by position, counted
// from zero ("%0$d"). The conversion's letter decides the shape, the type code decides what is
// read.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

typedef struct QlgObject* QlgHandle;

enum {  // levels
    QLG_LEVEL_ALL = 0,
    QLG_LEVEL_DEBUG_MAX = 1000,  // most detail
    QLG_LEVEL_DEBUG_MID = 2000,
    QLG_LEVEL_DEBUG_MIN = 3000,  // least detail
    QLG_LEVEL_INFO = 4000,
    QLG_LEVEL_WARN = 5000,
    QLG_LEVEL_ERROR = 6000,
    QLG_LEVEL_FATAL = 7000,
    QLG_LEVEL_OFF = 10000,
};

enum {  // type codes of arguments
    QLG_END = 0,
    QLG_INT = 502,    // 32-bit integer
    QLG_INT64 = 503,  // 64-bit integer, also pointers
    QLG_STRING = 507  // NUL-terminated text; null is shown as "(null)"
};

// Reads the toolkit's configuration (keys: see etc/vel-qlog.properties); 1 on success, 0 when the
// file cannot be read. In a forked child of the process that opened it, the toolkit stays silent.
// Opening again replaces the configuration; handles stay valid.
int QlgOpenToolkit(const char* propertiesFile);
// Writes out what is held back; objects are silent and first-failure data capture is off from then
// on.
void QlgCloseToolkit(void);

// A handle of the configured object of that name (and type, when type is not null), or null.
QlgHandle QlgGetObject(const char* name, const char* type);
void QlgReleaseObject(QlgHandle object);

// The property's value in memory that the caller frees with ZosMemoryFree, or null; *exists tells
// which.
char* QlgGetObjProp(QlgHandle object, const char* property, int* exists);
void QlgSetObjProp(QlgHandle object, const char* property, const char* value);
void QlgSetObjPropInt(QlgHandle object, const char* property, int value);

int QlgIsLoggable(QlgHandle object, int level);

// Calls back after any change of any object's level (open, close, property set, configuration
// reread), so that a user can keep a cheap copy. One listener; null removes it. Called once at
// registration.
void QlgSetLevelListener(void (*changed)(void));

// Takes over the levels that were edited in the configuration file since it was read (nothing else
// of it). Every message logged does this too; a program that may be silent for long calls it now
// and then, as often as it likes: the file is looked at once in five seconds.
void QlgCheckConfiguration(void);

void QlgLogDebugMax(QlgHandle tracer, const char* file, const char* function, int line,
                    const char* format, ...);
void QlgLogDebugMid(QlgHandle tracer, const char* file, const char* function, int line,
                    const char* format, ...);
void QlgLogDebugMin(QlgHandle tracer, const char* file, const char* function, int line,
                    const char* format, ...);

// The text with that set and number in the catalogue replaces the default format when there is one.
// A null catalogue or number 0 means no look-up.
void QlgLogInfo(QlgHandle logger, const char* catalogue, int set, int number, const char* format,
                ...);
void QlgLogWarn(QlgHandle logger, const char* catalogue, int set, int number, const char* format,
                ...);
void QlgLogError(QlgHandle logger, const char* catalogue, int set, int number, const char* format,
                 ...);
void QlgLogFatal(QlgHandle logger, const char* catalogue, int set, int number, const char* format,
                 ...);

// A plain line as given.
void QlgLogText(QlgHandle logger, const char* text, int reserved);

// First-failure data capture: once enabled, logging a fatal message copies the files of every
// configured capture handler into a new folder below its base directory.
void QlgInitFFDCExtensions(void);
char* QlgFFDCTriggerHandlerGetBaseDir(QlgHandle handler);  // free with ZosMemoryFree
void QlgFFDCTriggerHandlerSetBaseDir(QlgHandle handler, const char* directory);
char* QlgFileCopyHandlerGetFiles(QlgHandle handler);                    // free with ZosMemoryFree
void QlgFileCopyHandlerSetFiles(QlgHandle handler, const char* files);  // blank- or comma-separated

void ZosMemoryFree(void* memory);
void zis_set_dir(const char* codesetDirectory);

#ifdef __cplusplus
}
#endif
