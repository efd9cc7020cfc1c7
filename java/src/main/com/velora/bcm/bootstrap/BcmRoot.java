package com.velora.bcm.bootstrap;

import com.velora.probe.l3trace.BcmRuntime;

/** Called by the collector after a reconnection, so that a Publish Server that starts anew learns the classes. */
public final class BcmRoot {
    private BcmRoot() {
    }

    public static void sendAllClassEvents() {
        BcmRuntime.resendClasses();
    }
}
