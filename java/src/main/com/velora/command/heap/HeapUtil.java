package com.velora.command.heap;

/** Heap summaries on request. */
public final class HeapUtil {
    private HeapUtil() {
    }

    /**
     * 0: this machine can hold what internal.max.heapdump.size, or the heap in use, asks for; 1: not enough memory. What
     * the limits of a control group leave is looked at when the snapshot is taken.
     */
    public static native int testHeapDumpEnvironmentNative();

    /**
     * Appends the class summary; 0 on success, and when there was no memory for its text, which leaves the buffer as it
     * was; 1 when there is not enough memory for a snapshot, as a rule found out before the application is stopped; 2
     * while another snapshot runs; 3 when appending failed; 4 when the VM takes none. Stops the application for most of
     * its duration.
     */
    public static native int getHeapSnapShotData(StringBuffer summary);
}
