package com.velora.probe;

/** Creation and destruction of the collector's singletons. */
public final class ProbeUtils {
    private ProbeUtils() {
    }

    /** False when the VM's profiler interface is not to be had. */
    public static native boolean customServiceStart();

    public static native void customServiceShutDown();
}
