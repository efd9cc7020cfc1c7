package com.velora.probe.servlet;

import java.util.ArrayList;
import java.util.List;

/** Stands in for the real class where a test wants to see what the injected code calls. */
public final class ServletProbe {
    public static volatile boolean on = true;
    public static final List<String> CALLS = new ArrayList<>();
    public static RuntimeException failStart;

    private ServletProbe() {
    }

    public static boolean start(Object servlet, Object config, String servletName, String contextPath,
            Object includedUri, String requestUri, String user) {
        if (failStart != null) {
            throw failStart;
        }
        CALLS.add("start " + servletName + " " + contextPath + " " + includedUri + " " + requestUri + " " + user);
        return true;
    }

    public static void finish(boolean started) {
        CALLS.add("finish " + started);
    }

    public static void error(Throwable thrown, boolean started, Object servlet) {
        CALLS.add("error " + thrown.getMessage() + " " + started);
    }

    public static void failed(Throwable t) {
        CALLS.add("failed " + t.getMessage());
    }
}
