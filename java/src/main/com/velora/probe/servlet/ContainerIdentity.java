package com.velora.probe.servlet;

import com.velora.agent.AdminPort;
import com.velora.probe.ProbeSystem;

/**
 * Learns once from a servlet's configuration which container this is ("Apache Tomcat/10.1.60"), for the records that
 * open a connection. By reflection, because the boot loader knows no servlet API.
 */
final class ContainerIdentity {
    private static volatile boolean known;

    private ContainerIdentity() {
    }

    static void learnFrom(Object config) {
        if (known || config == null) {
            return;
        }
        known = true;
        try {
            Object context = call(config, "ServletConfig", "getServletContext");
            Object info = call(context, "ServletContext", "getServerInfo");
            if (info instanceof String) {
                send((String) info);
            }
        } catch (Throwable unknownContainer) { // it stays nameless
            return;
        }
    }

    private static void send(String serverInfo) {
        int slash = serverInfo.lastIndexOf('/');
        String product = slash < 0 ? serverInfo : serverInfo.substring(0, slash);
        String version = slash < 0 ? "" : serverInfo.substring(slash + 1);
        ProbeSystem.setServerIdentity(version, product, AdminPort.number());
    }

    /** Calls through the public interface, since the implementing class may not be accessible. */
    private static Object call(Object target, String simpleInterface, String method) throws Exception {
        for (Class<?> type = target.getClass(); type != null; type = type.getSuperclass()) {
            for (Class<?> candidate : type.getInterfaces()) {
                if (candidate.getSimpleName().equals(simpleInterface)) {
                    return candidate.getMethod(method).invoke(target);
                }
            }
        }
        return null;
    }
}
