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
 *   <li>sessionids: cut (default) or keep; whether URLs keep the ids of sessions</li>
 *   <li>probe: on (default) or off; off leaves classes alone and starts nothing</li>
 * </ul>
 * A key that is not known here is left to the native side, which has already reported what nobody knows.
 */
public final class AgentOptions {
    private static final String DEFAULT_PUBLISH_SERVERS = "127.0.0.1:9520";

    static final int NO_PORT = -1;

    private final String publishServers;
    private final boolean enabled;
    private final boolean sessionIdsKept;
    private final int adminPort;
    private final List<String> problems;

    private AgentOptions(String publishServers, boolean enabled, boolean sessionIdsKept, int adminPort,
            List<String> problems) {
        this.publishServers = publishServers;
        this.enabled = enabled;
        this.sessionIdsKept = sessionIdsKept;
        this.adminPort = adminPort;
        this.problems = Collections.unmodifiableList(problems);
    }

    public static AgentOptions parse(String arguments) {
        String servers = System.getProperty("velora.ps");
        String probe = System.getProperty("velora.probe");
        String admin = System.getProperty("velora.admin");
        String sessionIds = System.getProperty("velora.sessionids");
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
            } else if (key.equals("sessionids")) {
                sessionIds = value;
            }
        }
        if (servers == null || servers.trim().isEmpty()) {
            servers = DEFAULT_PUBLISH_SERVERS;
        }
        List<String> problems = new ArrayList<>();
        boolean enabled = !isOther("probe", probe, "on", "off", problems);
        boolean kept = isOther("sessionids", sessionIds, "cut", "keep", problems);
        return new AgentOptions(servers, enabled, kept, portOf(admin, problems), problems);
    }

    /** Whether the other of two words was given; no word is the usual one. */
    private static boolean isOther(String key, String value, String usual, String other, List<String> problems) {
        String word = value == null ? usual : value.toLowerCase(Locale.ROOT);
        if (!word.equals(usual) && !word.equals(other)) {
            problems.add(key + "=" + value + " is neither " + usual + " nor " + other + "; using " + usual);
        }
        return word.equals(other);
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

    public boolean sessionIdsKept() {
        return sessionIdsKept;
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
