package com.velora.agent;

import com.velora.probe.log.ProbeLogger;

/**
 * Where the Java side reports: the collector's own log, or, as long as there is no collector, one line on the
 * standard error stream, because nobody else would say why nothing is monitored.
 */
public final class AgentLog {
    private static final int WARNING = -1;
    private static final int ERROR = -2;

    private AgentLog() {
    }

    public static void info(String text) {
        write(0, text);
    }

    public static void warn(String text) {
        write(WARNING, text);
    }

    public static void error(String text, Throwable cause) {
        write(ERROR, cause == null ? text : text + ": " + cause);
    }

    private static void write(int level, String text) {
        try {
            ProbeLogger.writeText(level, text);
        } catch (Throwable noCollector) { // UnsatisfiedLinkError: the native library is not there
            if (level != 0) {
                System.err.println("Velora: " + text);
            }
        }
    }
}
