package com.velora.probe.l3trace;

import java.util.LinkedHashMap;
import java.util.Map;

/** Method-level tracing: instrumented methods report entry and exit by ids that were announced before. */
public final class BcmRuntime {
    private static final class TracedClass {
        private final String name;
        private final int[] methodIds;
        private final String[] methodNames;
        private final String[] signatures;

        TracedClass(String name, int[] methodIds, String[] methodNames, String[] signatures) {
            this.name = name;
            this.methodIds = methodIds.clone();
            this.methodNames = methodNames.clone();
            this.signatures = signatures.clone();
        }
    }

    /** What has been announced, by class id, in order; guarded by itself. */
    private static final Map<Integer, TracedClass> ANNOUNCED = new LinkedHashMap<>();

    private BcmRuntime() {
    }

    /** Makes the methods of a class known to the Publish Server, now and after every reconnection. */
    public static boolean announceClass(int classId, String name, int[] methodIds, String[] methodNames,
            String[] signatures) {
        synchronized (ANNOUNCED) {
            ANNOUNCED.put(classId, new TracedClass(name, methodIds, methodNames, signatures));
        }
        return sendClassEventNative(classId, name, methodIds, methodNames, signatures);
    }

    public static boolean withdrawClass(int classId) {
        TracedClass gone;
        synchronized (ANNOUNCED) {
            gone = ANNOUNCED.remove(classId);
        }
        return gone != null && sendClassUnloadEventNative(classId, gone.name, gone.methodIds);
    }

    public static void resendClasses() {
        synchronized (ANNOUNCED) {
            for (Map.Entry<Integer, TracedClass> entry : ANNOUNCED.entrySet()) {
                TracedClass traced = entry.getValue();
                sendClassEventNative(entry.getKey(), traced.name, traced.methodIds, traced.methodNames, traced.signatures);
            }
        }
    }

    /** phase 0: entry, 1: exit. */
    public static native boolean appendL3Event(byte phase, int methodId);

    private static native boolean sendClassEventNative(int classId, String name, int[] methodIds, String[] methodNames,
            String[] signatures);

    private static native boolean sendClassUnloadEventNative(int classId, String name, int[] methodIds);
}
