package com.velora.command;

/** Declares classes whose method ids come from Java instrumentation instead of the VM. */
public final class MethodLevelModule {
    private MethodLevelModule() {
    }

    public static native void initializeClass(int classId, String className, int[] methodIds, String[] methodNames,
            String[] methodSignatures);

    public static native void unloadClass(int classId, String className, int[] methodIds);
}
