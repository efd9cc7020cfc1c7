package com.velora.probe.log;

/** The collector's own log file. Levels: -2 error, -1 warning, 0 information, 1 debug, 2 trace. */
public final class ProbeLogger {
    private ProbeLogger() {
    }

    /** Writes the message of that key of the LogMessages file; an unknown key writes nothing. */
    public static native void write(int level, String messageKey);

    /** Writes the text as it is. */
    public static native void writeText(int level, String text);

    /** Below 20000 the level of the operator messages, from 20000 on (less 20000) that of the trace. */
    public static native void setNativeProbeLoggingLevel(int level);

    /** Null when no log file is open. */
    public static native String getLogFileName();
}
