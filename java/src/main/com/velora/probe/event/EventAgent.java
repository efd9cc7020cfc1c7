package com.velora.probe.event;

/** One worker that drains event queues into packets. */
public final class EventAgent {
    /** Runs the loop of that agent; returns only when it is stopped. */
    public native void startThread(int id);

    public native void stopThread(int id);

    public static native int getEvtAgentCount();
}
