package com.velora.probe.servlet;

import com.velora.agent.AgentLog;
import com.velora.probe.Capture;
import com.velora.probe.ProbeController;
import com.velora.probe.RegisteredTexts;
import com.velora.probe.ThreadManager;

/**
 * What the instrumented HttpServlet.service calls. It lives in the boot loader, sees no servlet API (the injected code
 * reads the request and hands over plain texts) and lets nothing out.
 */
public final class ServletProbe {
    /** Read by the injected code before anything else: while false a request costs this one read. */
    public static volatile boolean on;

    private static boolean failureTold; // guarded by the class's lock; no atomic, which is dear before main

    private ServletProbe() {
    }

    public static void switchOn() {
        on = true;
    }

    public static void switchOff() {
        on = false;
    }

    /**
     * A servlet was entered.
     *
     * @param config the servlet's configuration, or null when it has none: it tells once who the container is
     * @param servletName the configured name, or null
     * @param contextPath the application; empty for the root application, shown as "/"
     * @param includedUri the address of an included resource, or null: then requestUri counts
     * @return whether the request is being captured, to be handed to finish or error
     */
    public static boolean start(Object servlet, Object config, String servletName, String contextPath,
            Object includedUri, String requestUri, String user) {
        ContainerIdentity.learnFrom(config);
        String name = RequestNames.ofServlet(servlet, servletName);
        String application = contextPath == null || contextPath.isEmpty() ? "/" : contextPath;
        String url = RequestNames.ofUrl(includedUri instanceof String ? (String) includedUri : requestUri);
        int nameNumber = RegisteredTexts.numberOf(name);
        int applicationNumber = RegisteredTexts.numberOf(application);
        if (nameNumber != 0 && applicationNumber != 0) {
            Capture.beginRegistered(Capture.SERVLET, nameNumber, applicationNumber, url, user, 0);
        } else {
            ThreadManager.startNativeHttpRequest(null, name, application, url, user);
        }
        return true;
    }

    public static void finish(boolean started) {
        if (started) {
            try {
                Capture.end(Capture.SERVLET, 0, false);
            } catch (Throwable t) {
                failed(t);
            }
        }
    }

    public static void error(Throwable thrown, boolean started, Object servlet) {
        if (started) {
            try {
                ThreadManager.errorNativeHttpRequest(servlet.getClass().getName(), "", describe(thrown));
            } catch (Throwable t) {
                failed(t);
            }
        }
    }

    /** A failure of ours: told once, then we stay out of the way. */
    public static void failed(Throwable t) {
        if (t instanceof LinkageError) {
            on = false; // the natives are not there: every further request would fail alike
        }
        if (isFirstFailure()) {
            AgentLog.error("The servlet probe failed; requests that it misses are not shown", t);
        }
    }

    private static synchronized boolean isFirstFailure() {
        boolean first = !failureTold;
        failureTold = true;
        return first;
    }

    /** Whether the collector takes events now, for callers that want to know. */
    public static boolean capturing() {
        return on && ProbeController.isNativeProbeEnabled();
    }

    private static String describe(Throwable thrown) {
        String message;
        try {
            message = thrown.getMessage();
        } catch (Throwable broken) { // the application's own exception class
            message = null;
        }
        String type = thrown.getClass().getName();
        return message == null ? type : type + ": " + message;
    }
}
