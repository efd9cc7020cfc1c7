package com.velora.command.heap;

/** Heap summaries on request. */
public final class HeapUtil {
    private HeapUtil() {
    }

    /** 0: a snapshot may be taken now; 1: not enough memory. */
    public static native int testHeapDumpEnvironmentNative();

    /**
     * Appends the class summary; 0 on success, 1 not enough memory, 2 while another snapshot runs,
     * 3 when appending failed. Stops the application for most of its duration.
     */
    public static native int getHeapSnapShotData(StringBuffer summary);
}
