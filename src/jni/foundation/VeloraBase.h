// The virtual base of every manager, agent and container: the object's class name and the log lines
// that carry it, "[class (file@line)] message".
#pragma once

class VeloraBase {
public:
    explicit VeloraBase(const char* clsName);
    VeloraBase(const VeloraBase& other);
    VeloraBase& operator=(const VeloraBase& other);
    virtual ~VeloraBase();

    // Debug lines: the message as given, only while that trace depth is on.
    void _log(const char* file, int line, const char* message) const;       // debug-min
    void _logDebug(const char* file, int line, const char* message) const;  // debug-max
    // Always handed to the tracer, as "[class (file@line)] message \n"; a null message is empty.
    void _logInfo(const char* file, int line, const char* message) const;
    void _logWarn(const char* file, int line, const char* message) const;
    void _logError(const char* file, int line, const char* message) const;

    // Part of the base's interface without behaviour of their own: a class that has such a lock
    // hides them.
    void populateGlobalLock() {}
    void destroyGlobalLock() {}
    void enableLocking() {}
    void destroyMonitor() {}

protected:
    char* clsName_;  // owned copy
};
