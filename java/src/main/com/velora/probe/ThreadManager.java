package com.velora.probe;

/**
 * The request natives. An int result is the calling thread's id in records, 0 when it has none. Nothing here
 * throws; while the probe is disabled or capture is stopped the calls do nothing.
 */
public final class ThreadManager {
    private ThreadManager() {
    }

    public static native int startNativeHttpRequest(Object request, String requestName, String applicationName,
            String url, String userName);

    /** The name "JSP_CANCEL_REQUEST" ends the whole nest of requests of this thread. */
    public static native int finishNativeHttpRequest(String requestName, String applicationName, String url);

    /** Ends the request instead of {@link #finishNativeHttpRequest}, with the error's text. */
    public static native int errorNativeHttpRequest(String requestName, String applicationName, String error);

    public static native int startIIOPServerRequest(String className, String methodName);

    public static native int finishIIOPServerRequest();

    public static native int startIIOPClientRequest(String className, String methodName);

    public static native int finishIIOPClientRequest();

    public static native int beginNativeEJBRequest(String className, String methodName, String descriptor);

    public static native int endNativeEJBRequest(String className, String methodName, String descriptor);

    public static native void issueTraceRequest();

    /** Three strings a frame (class, method, signature), callee first; unused elements are null. */
    public static native String[] getStackTrace(int threadId, int maxDepth, int jvmVendor);

    /** -1 unknown, 4 ended or cancelled, else 1 runnable, 2 blocked, 3 waiting with bits 0x8000 and 0x4000. */
    public static native int getNativeThreadStatus(int threadId);

    /**
     * Marks that thread: 4 as cancelled, 32768 as suspended, 8192 as running again. The mark shows in
     * {@link #getNativeThreadStatus}; capture goes on.
     */
    public static native void setThreadStatus(int threadId, int threadStatus);

    public static native int getEnv();

    public static native String getNativeProbeStatus();

    /** Each id right-aligned in 21 characters and a semicolon, or null. */
    public static native String getNativeStoppedThreadIDs();
}
