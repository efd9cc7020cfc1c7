package com.velora.probe;

/** This server's identity and the process's figures. */
public final class ProbeSystem {
    /** Buckets of the native method table; 0 means the built-in number. Read once by initializeNative. */
    static int methodHashSize = Integer.getInteger("velora.method.hash.size", 0);
    /** Path of the server's redirected standard output, or null. Read once by initializeNative. */
    static String probeStdout = System.getProperty("velora.probe.stdout");

    private ProbeSystem() {
    }

    public static void initialize() {
        initializeNative();
    }

    private static native void initializeNative();

    public static native int getProcessId();

    public static native int getCpuCount();

    /** User and system time of the process, ms. */
    public static native long getProcessCpuTime();

    public static native int[] getSamplingRates();

    public static native void setSamplingRates(int[] rates, boolean useDefault);

    public static native String getBuildTime();

    public static native String getHome();

    public static native String getNodeName();

    public static native String getAppServerName();

    public static native String getProfileName();

    public static native String getModFileName();

    /**
     * Version as "major.minor.micro"; goes into the records that open the next connection. A null or empty text leaves
     * the one that is known.
     */
    public static native void setServerIdentity(String version, String componentId, int adminPort);

    /** Called by the native side for the records that open a connection. */
    static String fullAppServerName() {
        return getAppServerName();
    }
}
