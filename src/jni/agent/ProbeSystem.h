// What the command line says about this server, and the figures of the process: the native side of
// the Java class com.velora.probe.ProbeSystem.
//
// Natives (static in Java unless they change their mind; receiver ignored):
//   - void initializeNative(): reads the static fields int methodHashSize and String probeStdout
//   - int getProcessId()
//   - int getCpuCount(): processors online
//   - long getProcessCpuTime(): ms, user and system
//   - int[] getSamplingRates(): four, one per kind of request
//   - void setSamplingRates(int[] rates, boolean useDefault)
//   - String getBuildTime(): "hh:mm:ss Mon dd yyyy"
//   - String getHome(), getNodeName(), getAppServerName(), getProfileName(), getModFileName()
//   - void setServerIdentity(String version, String componentId, int adminPort)
// The library calls back: static String com.velora.probe.ProbeSystem.fullAppServerName()
#pragma once

#include <jni.h>

#include <string>
#include <vector>

#include "foundation/ProbeState.h"

class ProbeSystem {
public:
    // Reads identity and VM arguments from the process's command line, and from the environment
    // variables whose options the VM takes: JDK_JAVA_OPTIONS and JAVA_TOOL_OPTIONS stand before the
    // command line, _JAVA_OPTIONS behind it; the last setting wins, as in the VM. Run once while
    // the library loads.
    static void readCommandLineArguments();
    // The same from given arguments, program name first; for tests and embedding launchers.
    static void parseArguments(const std::vector<std::string>& arguments);

    // Every argument that was seen, in order of precedence (later wins). Read-only after loading.
    static const std::vector<std::string>& jvmArguments();

    // Values of -Dam.home=, -Dam.nodename=, -Dam.appserver=, -Dam.profilename= and
    // -Djava.ext.dirs=; empty when not given.
    static const char* commandLineHome();
    static const char* commandLineNodeName();
    static const char* commandLineAppServer();
    static const char* commandLineProfileName();
    static const char* extensionDirs();

    static SamplingRates samplingRates();
    static void setSamplingRates(const SamplingRates& rates);

    static const char* buildTime();
    static const char* buildDate();
};

// The MOD file under the home, "<home>/etc/am.mod", in a new array (caller: delete[]), when the
// folder is there and can be used; else null.
char* getMODFileName();
