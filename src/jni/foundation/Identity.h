// Who this server is: the agent home, node, server and profile that the start-up settled on, the
// version, component and administration port that the Java side adds, and the VM's arguments.
//
// Threads: home to bootClassName and the arguments are written while the library loads, before any
// other thread knows it, and only read afterwards. Version and component belong to the controller,
// which sets them before the probe starts.
#pragma once

#include <jni.h>

#include <string>
#include <vector>

class Identity {
public:
    Identity() = delete;

    static const char* home();
    static const char* nodeName();
    static const char* appServerName();
    static const char* profileName();
    static const char* bootClassName();  // slash form

    // Each text is cut at 255 bytes; null counts as empty.
    static void set(const char* home, const char* node, const char* server, const char* profile);
    static void setBootClassName(const char* name);  // dotted or slash form

    static const char* appServerVersion();                 // "0.0.0" until it is set
    static const char* componentId();                      // empty until it is set
    static int adminPort();                                // 0: not known
    static void setAppServerVersion(const char* version);  // ignores null and empty
    static void setComponentId(const char* id);            // ignores null and empty
    static void setAdminPort(int port);
    static void forgetServer();  // back to what version, component and port are at first

    // Every argument of the VM that was seen, in order of precedence: later ones win.
    static const std::vector<std::string>& vmArguments();
    static void setVmArguments(std::vector<std::string> arguments);
};

// The server's full name as the Java side knows it, cut to size - 1 bytes at a character boundary.
// False, and buffer unchanged, when it cannot be had. Needs a thread that may call Java.
bool getFullAppServerName(JNIEnv* env, char* buffer, int size);
