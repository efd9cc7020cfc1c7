package com.velora.probe.heap;

/** Allocation sites of instrumented code. */
public final class HeapAnalysisRuntime {
    private HeapAnalysisRuntime() {
    }

    public static native void nativeHeapAllocationStart(int methodId, int lineNumber, String className);

    public static native void nativeHeapAllocationEnd(int methodId, int lineNumber, String className);
}
