package com.velora.probe;

/** The collector's controls. Levels are 1 to 3; the getters and setters also take 1001 to 1003. */
public final class ProbeController {
    private ProbeController() {
    }

    public static native void startNativeProbe();

    /** Blocks for about ten seconds, so that what is in flight can leave. */
    public static native void stopNativeProbe();

    /** 1001, 1002 or 1003. */
    public static native int getMonitoringLevel();

    /** False when the level is rejected, equals the present one, or the probe is disabled. */
    public static native boolean setModLevel(int level);

    public static native boolean restartOnToFromL1();

    public static native boolean isNativeProbeEnabled();

    /** Class-name prefixes in slash form, each ending in a wildcard mark; null for none. */
    public static native void setIncludeExcludeList(String[] include, String[] exclude);

    public static native boolean isJvmpiEnabled();

    public static native boolean initializeJVMPI();

    /** The region bits of correlation tokens, most significant first, for example "101". */
    public static native void setupGps(String regionMask);

    /** Sends what is queued without waiting for the periods; returns when all is sent or after so many ms. */
    public static native void flushNativeProbe(int milliseconds);

    /** After the last flush: has the workers' loops end; false when some still run after so many ms. */
    public static native boolean endWorkers(int milliseconds);
}
