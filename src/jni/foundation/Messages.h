// Every numbered operator message: number, level and default text, in one place. The message
// catalogue is generated from this table, so the two cannot drift. Where two texts share a number
// (1059, 1077) the catalogue leaves that number out, because one translation cannot stand for both.
//
// 1001 to 1099 are the system's long-standing numbers; 1101 and up are ours: 1101 foundation, 1121
// transport, 1141 events, 1151 agent, 1171 capture, 1181 instrumentation, 1201 diagnostics.
#pragma once

#include "foundation/Message.h"

// VEL_MESSAGE(name, number, level, text)
#define VEL_MESSAGES(VEL_MESSAGE)                                                                                    \
    VEL_MESSAGE(kCustomServiceInitialized, 1001, info,                                                               \
                "Native Custom Service initialized successfully...")                                                 \
    VEL_MESSAGE(kCustomServiceFailed, 1002, fatal,                                                                   \
                "Custom Service initialization failed as JVMPI could not be initialized")                            \
    VEL_MESSAGE(kCustomServiceShutdown, 1003, info, "Native Custom Service shutdown completes...")                   \
    VEL_MESSAGE(kProbeStarted, 1004, info, "Native Probe started successfully...")                                   \
    VEL_MESSAGE(kProbeStopped, 1005, info, "Native Probe stopped successfully...")                                   \
    VEL_MESSAGE(kHomeUndefined, 1006, error, "am.home system property is undefined")                                 \
    VEL_MESSAGE(kNodeUndefined, 1008, warn, "am.nodename system property is undefined")                              \
    VEL_MESSAGE(kServerUndefined, 1010, warn, "am.appserver system property is undefined")                           \
    VEL_MESSAGE(kProbeMgrStarted, 1011, info, "ProbeManager Started successfully")                                   \
    VEL_MESSAGE(kProbeMgrStartFailed, 1012, error,                                                                   \
                "Failed to start ProbeManager. JVMPI initialization failed!")                                        \
    VEL_MESSAGE(kNoJvmpiAtStart, 1013, fatal,                                                                        \
                "JVMPI was NOT initialized by Native Probe Start, exiting")                                          \
    VEL_MESSAGE(kProbeMgrStopped, 1014, info, "Probe Manager stopped successfully")                                  \
    VEL_MESSAGE(kInterfaceFailed, 1015, fatal, "Failed during interface initialization")                             \
    VEL_MESSAGE(kInterfaceReady, 1016, info, "Initialized event interface successfully")                             \
    VEL_MESSAGE(kTracingMode, 1018, info, "Using tracing mode %0$s(%1$d), and mod level is %2$d")                    \
    VEL_MESSAGE(kGlobalLockFailed, 1037, error,                                                                      \
                "JVMPI could not create a Raw Monitor for GlobalLock")                                               \
    VEL_MESSAGE(kGlobalLockTooEarly, 1038, error,                                                                    \
                "Global lock being created even before initialization of JVMPI")                                     \
    VEL_MESSAGE(kUnknownEventType, 1039, warn, "Unknown Event Type, TypeID: %d")                                     \
    VEL_MESSAGE(kEventAgentNotStarted, 1040, warn,                                                                   \
                "EventAgent not started/alive, cannot manageThreadData")                                             \
    VEL_MESSAGE(kSendFailed, 1041, warn, "Failed to send data, NAMgr send was unsuccessful")                         \
    VEL_MESSAGE(kEventQueueNull, 1042, error, "Event Queue is NULL for Thread, TID: %d")                             \
    VEL_MESSAGE(kDroppedPsDownLast, 1043, warn,                                                                      \
                "OverAll events dropped/deleted when PS down: %d, log message now off")                              \
    VEL_MESSAGE(kEventsDropped, 1044, info,                                                                          \
                "Events dropped %d for thread %s as they exceeded event queue limit of %d")                          \
    VEL_MESSAGE(kThreadDataFailed, 1045, warn, "ThreadData creation failed")                                         \
    VEL_MESSAGE(kEvtAgentMgrStarted, 1046, info, "EvtAgentManager started...")                                       \
    VEL_MESSAGE(kEvtAgentMgrStopped, 1047, info, "EvtAgentManager stopped...")                                       \
    VEL_MESSAGE(kMemoryLimitTooLow, 1051, info,                                                                      \
                "Ignoring user specified Memory Limit as it's less than minimum limit, %d MB")                       \
    VEL_MESSAGE(                                                                                                     \
        kMemoryProperties, 1052, info,                                                                               \
        " Memory Monitor properties, ULimit %d bytes, Accept Threshold %d bytes, URL Limit: %d, SQL Limit: %d")      \
    VEL_MESSAGE(kCounterResets, 1053, info, "Queue counter resets every %d iterations")                              \
    VEL_MESSAGE(                                                                                                     \
        kMemoryLimitReached, 1054, info,                                                                             \
        "Memory Limit reached, datacollector stopped accepting data, Limit: %ld Memory Utilization: %ld")            \
    VEL_MESSAGE(                                                                                                     \
        kMemoryBelowLimit, 1055, info,                                                                               \
        "Memory Utlization below Limit, datacollector is accepting data, Limit: %ld Memory Utilization: %ld")        \
    VEL_MESSAGE(kNetAgentNotReady, 1056, warn,                                                                       \
                "NetworkAgent Thread is not started/alive/ready, rejecting send data")                               \
    VEL_MESSAGE(kNetQueueFull, 1057, warn, "Queue is full, buffer limit reached")                                    \
    VEL_MESSAGE(kPsLookupFailed, 1058, warn, "PSLookup failed")                                                      \
    VEL_MESSAGE(kSocketFailed, 1059, error, "Failure creating socket. Errno: %d")                                    \
    VEL_MESSAGE(kConnectFailed, 1059, error, "socket connect() failure [%s:%d] Errno: %d")                           \
    VEL_MESSAGE(kConnected, 1060, info,                                                                              \
                "Successfully connected to PS Host: %s Port: %d Buffer Size: %d")                                    \
    VEL_MESSAGE(kSocketWriteFailed, 1061, error, "Socket write to PS failed, [%s:%d], ERRNO: %s")                    \
    VEL_MESSAGE(kNetAgentStarted, 1062, info, "Network Agent Thread Started")                                        \
    VEL_MESSAGE(kPsSocketConnected, 1063, info, "Successfully connected to PS socket")                               \
    VEL_MESSAGE(kPsSocketFailed, 1064, error, "Failed to connect to PS socket")                                      \
    VEL_MESSAGE(kPsDetailsFailed, 1065, warn, "Could not obtain PS proxy details from Kernel")                       \
    VEL_MESSAGE(kNetAgentMgrStarted, 1066, info, "NetworkAgentManager started")                                      \
    VEL_MESSAGE(kNetAgentMgrStopped, 1067, info, "NetworkAgentManager stopped")                                      \
    VEL_MESSAGE(kHomeNotFound, 1068, error,                                                                          \
                "am.home not found, failed to initialize the Property Manager")                                      \
    VEL_MESSAGE(kDefaultPropertiesNotFound, 1069, error, "Default property file %s not found")                       \
    VEL_MESSAGE(kUsingPropertyFile, 1070, info, "Using property file %s")                                            \
    VEL_MESSAGE(kPropertyMgrStarted, 1071, info, "PropertyMgr started")                                              \
    VEL_MESSAGE(kThreadMgrStarted, 1072, info, "Thread Manager started")                                             \
    VEL_MESSAGE(kThreadMgrStopped, 1073, info, "Thread Manager stopped")                                             \
    VEL_MESSAGE(kStackTraceDisabled, 1077, error, "Probe is Disabled, cannot return stack trace")                    \
    VEL_MESSAGE(kThreadDumpInfoNull, 1077, error, "Failed to construct ThreadDumpInfo object")                       \
    VEL_MESSAGE(kUsingModFile, 1078, info, "using modfile: '%s'")                                                    \
    VEL_MESSAGE(kModFileFailed, 1079, error, "Failed to write modfile")                                              \
    VEL_MESSAGE(kUsingProbeLevel, 1080, info, "Using probe level %d")                                                \
    VEL_MESSAGE(kBuildTime, 1081, info, "Native Library Build TIME : %s DATE: %s")                                   \
    VEL_MESSAGE(                                                                                                     \
        kBootstrapRegistered, 1082, info,                                                                            \
        "Successfully registered defineNativeMethodsForClassNative for com.velora.bcm.bootstrap.BcmBootstrap.class") \
    VEL_MESSAGE(kBootstrapNotFound, 1083, error,                                                                     \
                "Can not find com.velora.bcm.bootstrap.BcmBootstrap.class")                                          \
    VEL_MESSAGE(kProbeStdoutUndefined, 1088, error,                                                                  \
                "Can not get java system property velora.probe.stdout")                                              \
    VEL_MESSAGE(kProbeStdoutUnopenable, 1089, error, "Can not open velora.probe.stdout:%s")                          \
    /* foundation */                                                                                                 \
    VEL_MESSAGE(kNativeFailed, 1102, error, "Native %s failed and did nothing: %s")                                  \
    VEL_MESSAGE(kBadSetting, 1101, warn,                                                                             \
                "Setting %s has the unusable value \"%s\"; using %s instead")                                        \
    /* transport */                                                                                                  \
    VEL_MESSAGE(kRecordsLost, 1121, warn, "Records lost: %ld (%s), %ld in total since start")                        \
    VEL_MESSAGE(kGatedCalls, 1122, warn,                                                                             \
                "Capture was stopped by the memory limit: %ld calls made no event")                                  \
    VEL_MESSAGE(                                                                                                     \
        kRecordTooLarge, 1123, warn,                                                                                 \
        "A record of kind %d takes up to %ld bytes and fits no packet of %ld; such records are left out")            \
    VEL_MESSAGE(kConnectionEnded, 1124, info,                                                                        \
                "Connection to PS ended [%s:%d] after %ld packets with %ld records")                                 \
    VEL_MESSAGE(kFlushIncomplete, 1125, warn,                                                                        \
                "Last flush ended after %d ms with data unsent; nothing is sent from now on")                        \
    VEL_MESSAGE(kClassEventsNotResent, 1126, warn,                                                                   \
                "Could not have the class events sent again: %s")                                                    \
    VEL_MESSAGE(kServerStalled, 1127, warn,                                                                          \
                "PS [%s:%d] has taken nothing for %d s; the connection is given up")                                 \
    VEL_MESSAGE(kReallyHeld, 1128, info,                                                                             \
                "What is queued has long texts: it really takes %ld bytes")                                          \
    VEL_MESSAGE(                                                                                                     \
        kQueuesOverflowed, 1129, warn,                                                                               \
        "Events dropped: %ld since the last such line, of threads whose queues held %d and were full")               \
    VEL_MESSAGE(                                                                                                     \
        kStillAway, 1130, warn,                                                                                      \
        "No connection to PS yet: %ld attempts have failed; their reasons follow once a minute")                     \
    /* events */                                                                                                     \
    VEL_MESSAGE(kNoRecordForPhase, 1141, warn,                                                                       \
                "Events of kind %d with phase %d and action %d have no record and are not sent")                     \
    VEL_MESSAGE(kVirtualThreadsUnknown, 1142, warn,                                                                  \
                "The VM does not tell of virtual threads; what they do is not captured")                             \
    /* agent */                                                                                                      \
    VEL_MESSAGE(kNestedRequestsStay, 1151, warn,                                                                     \
                "internal.disable.nestedrequests acts at probe level 1 only; the level is %d")                       \
    /* capture */                                                                                                    \
    VEL_MESSAGE(                                                                                                     \
        kGpsMaskTooLong, 1171, error,                                                                                \
        "GPS region mask \"%s\" has more than 31 bits; correlation tokens stay as they were")                        \
    /* instrumentation */                                                                                            \
    VEL_MESSAGE(kBadClassMagic, 1181, error, "Bad class file magic %0X")                                             \
    VEL_MESSAGE(kClassFileCorrupt, 1182, error, "Class file corrupt")                                                \
    VEL_MESSAGE(kInstrumentConfigBad, 1183, error,                                                                   \
                "Instrumentation configuration %s, line %d: %s. No class loader is instrumented")                    \
    VEL_MESSAGE(kTargetSlotsUnfit, 1184, error,                                                                      \
                "Class %s stays as it is: the configured slots do not fit the %s method %s")                         \
    /* diagnostics */

namespace msg {
#define VEL_DEFINE_MESSAGE(name, number, level, text) \
    inline constexpr Message name{number, MessageLevel::level, text};
VEL_MESSAGES(VEL_DEFINE_MESSAGE)
#undef VEL_DEFINE_MESSAGE
}  // namespace msg
