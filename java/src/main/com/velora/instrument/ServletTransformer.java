package com.velora.instrument;

import com.velora.agent.AgentLog;

import java.lang.instrument.ClassFileTransformer;
import java.lang.instrument.Instrumentation;
import java.security.ProtectionDomain;

/**
 * Puts the servlet probe into HttpServlet as it is loaded, of the old and the new servlet API. Every other class is
 * passed by with one comparison and no allocation. Whatever fails, the class is defined as it came.
 */
public final class ServletTransformer implements ClassFileTransformer {
    private static final String SUFFIX = "/servlet/http/HttpServlet";

    private ServletTransformer() {
    }

    /** Called before the application's main method, so no servlet class can be there yet. */
    public static void install(Instrumentation instrumentation) {
        instrumentation.addTransformer(new ServletTransformer());
    }

    @Override
    public byte[] transform(ClassLoader loader, String name, Class<?> redefined, ProtectionDomain domain, byte[] bytes) {
        if (name == null || !name.endsWith(SUFFIX)) {
            return null;
        }
        try {
            String api = name.substring(0, name.length() - SUFFIX.length());
            if (!api.equals("jakarta") && !api.equals("javax")) {
                return null;
            }
            return ServletInstrumenter.instrument(bytes, api);
        } catch (Throwable t) { // an unknown shape of the class, or our own libraries: the server comes first
            AgentLog.error("The servlet probe could not be put into " + name + "; its requests are not shown", t);
            return null;
        }
    }
}
