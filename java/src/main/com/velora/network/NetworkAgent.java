package com.velora.network;

/** Kept for callers of old; the native side needs no preparation. */
public final class NetworkAgent {
    private NetworkAgent() {
    }

    public static native void initCppSide();
}
