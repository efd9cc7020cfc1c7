package com.velora.probe.event;

/** One worker that writes packets to a Publish Server. */
public final class NetworkAgent {
    /** Runs the loop of that agent; returns only when it is stopped. */
    public native void startThread(int id);

    public native void stopThread(int id);

    public static native int getNetAgentCount();
}
