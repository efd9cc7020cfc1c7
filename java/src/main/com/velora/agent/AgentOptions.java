package com.velora.agent;

import java.util.ArrayList;
import java.util.Collections;
import java.util.List;
import java.util.Locale;

/**
 * What the operator told the Java side: the agent's argument text ("key=value,key=value") and, for keys that
 * it does not hold, the system properties "velora.key".
 *
 * <ul>
 *   <li>ps: the Publish Servers, "host:port" separated by ';' or blanks (in the system property also by ','), tried
 *       in turn; default 127.0.0.1:9520</li>
 *   <li>admin: the port on which an operator may ask, 0 for any free one; default none</li>
 *   <li>probe: on (default) or off; off leaves classes alone and starts nothing</li>
 * </ul>
 * A key that is not known here is left to the native side, which has already reported what nobody knows.
 */
public final class AgentOptions {
    private static final String DEFAULT_PUBLISH_SERVERS = "127.0.0.1:9520";

    static final int NO_PORT = -1;

    private final String publishServers;
    private final boolean enabled;
    private final int adminPort;
    private final List<String> problems;

    private AgentOptions(String publishServers, boolean enabled, int adminPort, List<String> problems) {
        this.publishServers = publishServers;
        this.enabled = enabled;
        this.adminPort = adminPort;
        this.problems = Collections.unmodifiableList(problems);
    }

    public static AgentOptions parse(String arguments) {
        String servers = System.getProperty("velora.ps");
        String probe = System.getProperty("velora.probe");
        String admin = System.getProperty("velora.admin");
        for (String pair : (arguments == null ? "" : arguments).split(",")) {
            int equals = pair.indexOf('=');
            String key = (equals < 0 ? pair : pair.substring(0, equals)).trim();
            String value = equals < 0 ? "" : pair.substring(equals + 1).trim();
            if (key.equals("ps")) {
                servers = value;
            } else if (key.equals("probe")) {
                probe = value;
            } else if (key.equals("admin")) {
                admin = value;
            }
        }
        if (servers == null || servers.trim().isEmpty()) {
            servers = DEFAULT_PUBLISH_SERVERS;
        }
        List<String> problems = new ArrayList<>();
        return new AgentOptions(servers, isOn(probe, problems), portOf(admin, problems), problems);
    }

    private static boolean isOn(String probe, List<String> problems) {
        String word = probe == null ? "on" : probe.toLowerCase(Locale.ROOT);
        if (!word.equals("on") && !word.equals("off")) {
            problems.add("probe=" + probe + " is neither on nor off; using on");
        }
        return !word.equals("off");
    }

    private static int portOf(String admin, List<String> problems) {
        if (admin == null || admin.trim().isEmpty()) {
            return NO_PORT;
        }
        try {
            int port = Integer.parseInt(admin.trim());
            if (port >= 0 && port <= 65535) {
                return port;
            }
        } catch (NumberFormatException noNumber) { // told below
        }
        problems.add("admin=" + admin + " is no port of 0 to 65535; there is no admin port");
        return NO_PORT;
    }

    public String publishServers() {
        return publishServers;
    }

    public boolean enabled() {
        return enabled;
    }

    /** 0: any free port; {@link #NO_PORT}: the admin port stays closed. */
    public int adminPort() {
        return adminPort;
    }

    /** Writes what was wrong with the options into the probe log; needs the native library. */
    void reportProblems() {
        for (String problem : problems) {
            AgentLog.warn(problem);
        }
    }
}
