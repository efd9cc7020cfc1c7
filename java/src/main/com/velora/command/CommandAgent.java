package com.velora.command;

/** Correlated calls and commands on threads. */
public final class CommandAgent {
    private CommandAgent() {
    }

    /** A call to another server leaves: assigns this thread a token, see {@link #getNativeGpsToken}. */
    public static native void startNativeGpsInvokeRequest();

    public static native void endNativeGpsInvokeRequest();

    /** A call that carries that token arrived. */
    public static native void startNativeGpsReceiveRequest(int gpsToken);

    public static native void completeNativeGpsReceiveRequest(int gpsToken);

    /** The token of the call in flight, four bytes, handed out once; zeros when there is none. */
    public static native byte[] getNativeGpsToken();

    /** The id of the thread of that name in that group, 0 when unknown. */
    public static native int getThreadId(String threadName, String groupName);

    /** 0, or -1 when no dump was made; the argument is a {@link ThreadDumpInfo}. */
    public static native int generateThreadDump(Object threadDumpInfo);
}
