package com.velora.publish;

import com.velora.agent.AgentLog;

import java.net.Inet4Address;
import java.net.InetAddress;
import java.net.UnknownHostException;
import java.util.ArrayList;
import java.util.Collections;
import java.util.List;

/**
 * Tells the network agents where the Publish Server is. The native side calls {@link #initialize} before every
 * connection attempt and then reads the fields, under a lock of its own.
 *
 * <p>The servers of the list are tried in turn: an attempt that follows soon after the last one means that the last
 * server did not take or keep the connection, so the next one is offered. After a quiet time (a connection that held)
 * the list starts with its first server again.
 */
public final class pe_lookup {
    /** Dotted IPv4 address: the native side resolves no names. */
    static String hostName_;
    static int port_ = -1;
    /** Size asked of the socket's send buffer, bytes. */
    static int sendBuffSize_ = 1 << 20;

    private static final long QUIET_NANOS = 30_000_000_000L;

    private static List<Server> servers = Collections.emptyList();
    private static int next;
    private static long lastAttempt;

    private pe_lookup() {
    }

    /** Takes "host:port" entries separated by ';', ',' or blanks; what is no such entry is reported and left out. */
    public static synchronized void use(String list) {
        List<Server> parsed = new ArrayList<>();
        for (String entry : list.split("[;,\\s]+")) {
            if (!entry.isEmpty()) {
                Server server = Server.parse(entry);
                if (server == null) {
                    AgentLog.warn("Publish Server \"" + entry + "\" is not host:port with a port of 1 to 65535; left out");
                } else {
                    parsed.add(server);
                }
            }
        }
        if (parsed.isEmpty()) {
            AgentLog.warn("No usable Publish Server in \"" + list + "\"; nothing will be sent. Set velora.ps=host:port");
        }
        servers = parsed;
        next = 0;
        lastAttempt = 0;
    }

    /** 1 when the fields name a server, 0 when none is known or its name cannot be resolved. */
    public static synchronized int initialize() {
        try {
            return choose(System.nanoTime()) ? 1 : 0;
        } catch (Throwable t) { // a lookup that fails is simply tried again
            return 0;
        }
    }

    static boolean choose(long now) {
        if (servers.isEmpty()) {
            return false;
        }
        if (lastAttempt == 0 || now - lastAttempt > QUIET_NANOS) {
            next = 0;
        }
        lastAttempt = now;
        Server server = servers.get(next);
        next = (next + 1) % servers.size();
        String address = server.address();
        if (address == null) {
            return false;
        }
        hostName_ = address;
        port_ = server.port;
        return true;
    }

    private static final class Server {
        private final String host;
        private final int port;

        private Server(String host, int port) {
            this.host = host;
            this.port = port;
        }

        static Server parse(String entry) {
            int colon = entry.lastIndexOf(':');
            if (colon <= 0) {
                return null;
            }
            try {
                int port = Integer.parseInt(entry.substring(colon + 1));
                return port < 1 || port > 65535 ? null : new Server(entry.substring(0, colon), port);
            } catch (NumberFormatException e) {
                return null;
            }
        }

        String address() {
            try {
                for (InetAddress address : InetAddress.getAllByName(host)) {
                    if (address instanceof Inet4Address) {
                        return address.getHostAddress();
                    }
                }
                return null;
            } catch (UnknownHostException e) {
                return null;
            }
        }
    }
}
