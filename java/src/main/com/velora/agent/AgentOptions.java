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
 *   <li>probe: on (default) or off; off leaves classes alone and starts nothing</li>
 * </ul>
 * A key that is not known here is left to the native side, which has already reported what nobody knows.
 */
public final class AgentOptions {
    private static final String DEFAULT_PUBLISH_SERVERS = "127.0.0.1:9520";

    private final String publishServers;
    private final boolean enabled;
    private final List<String> problems;

    private AgentOptions(String publishServers, boolean enabled, List<String> problems) {
        this.publishServers = publishServers;
        this.enabled = enabled;
        this.problems = Collections.unmodifiableList(problems);
    }

    public static AgentOptions parse(String arguments) {
        String servers = System.getProperty("velora.ps");
        String probe = System.getProperty("velora.probe");
        for (String pair : (arguments == null ? "" : arguments).split(",")) {
            int equals = pair.indexOf('=');
            String key = (equals < 0 ? pair : pair.substring(0, equals)).trim();
            String value = equals < 0 ? "" : pair.substring(equals + 1).trim();
            if (key.equals("ps")) {
                servers = value;
            } else if (key.equals("probe")) {
                probe = value;
            }
        }
        List<String> problems = new ArrayList<>();
        boolean enabled = true;
        if (probe != null) {
            String word = probe.toLowerCase(Locale.ROOT);
            if (word.equals("off")) {
                enabled = false;
            } else if (!word.equals("on")) {
                problems.add("probe=" + probe + " is neither on nor off; using on");
            }
        }
        if (servers == null || servers.trim().isEmpty()) {
            servers = DEFAULT_PUBLISH_SERVERS;
        }
        return new AgentOptions(servers, enabled, problems);
    }

    public String publishServers() {
        return publishServers;
    }

    public boolean enabled() {
        return enabled;
    }

    /** Writes what was wrong with the options into the probe log; needs the native library. */
    void reportProblems() {
        for (String problem : problems) {
            AgentLog.warn(problem);
        }
    }
}
