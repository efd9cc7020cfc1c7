package com.velora.publish;

import com.velora.agent.AgentLog;

import java.net.Inet4Address;
import java.net.InetAddress;
import java.net.UnknownHostException;
import java.util.ArrayList;
import java.util.Collections;
import java.util.List;
import java.util.StringTokenizer;

/**
 * Tells the network agents where the Publish Server is. The native side calls {@link #initialize} before every
 * connection attempt and then reads the fields, under a lock of its own.
 *
 * <p>The servers of the list are tried in turn: an attempt that follows soon after the last one means that the last
 * server did not take or keep the connection, so the next one is offered. After a quiet time (a connection that held)
 * the list starts with its first server again, unless that is the one whose connection has just ended: one that
 * stands still takes connections as if nothing were wrong.
 */
public final class pe_lookup {
    /** An IPv4 address in dots, or an IPv6 address: the native side resolves no names. */
    static String hostName_;
    static int port_ = -1;
    /** Size asked of the socket's send buffer, bytes. */
    static int sendBuffSize_ = 1 << 20;

    private static final long QUIET_NANOS = 30_000_000_000L;
    private static final long COMPLAINT_NANOS = 60_000_000_000L;

    private static List<Server> servers = Collections.emptyList();
    private static int next;
    private static long lastAttempt;

    private pe_lookup() {
    }

    /** Takes "host:port" entries separated by ';', ',' or blanks; what is no such entry is reported and left out. */
    public static synchronized void use(String list) {
        List<Server> parsed = new ArrayList<>();
        StringTokenizer entries = new StringTokenizer(list, ";, \t\n\r\f"); // no pattern: they are dear before main
        while (entries.hasMoreTokens()) {
            String entry = entries.nextToken();
            Server server = Server.parse(entry);
            if (server == null) {
                AgentLog.warn("Publish Server \"" + entry + "\" is not host:port with a port of 1 to 65535; left out");
            } else {
                parsed.add(server);
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
        if (lastAttempt == 0 || now - lastAttempt > QUIET_NANOS && next != 1) {
            next = 0;
        }
        lastAttempt = now;
        Server server = servers.get(next);
        next = (next + 1) % servers.size();
        try {
            hostName_ = server.address();
            port_ = server.port;
            return true;
        } catch (UnknownHostException e) {
            server.complain(now, e);
            return false;
        }
    }

    private static final class Server {
        private final String host;
        private final int port;
        private long complained; // when, 0: never

        private Server(String host, int port) {
            this.host = host;
            this.port = port;
        }

        static Server parse(String entry) {
            int colon = entry.lastIndexOf(':');
            String host = entry.substring(0, Math.max(colon, 0));
            if (host.startsWith("[") && host.endsWith("]")) {
                host = host.substring(1, host.length() - 1);
            } else if (host.indexOf(':') >= 0) { // an IPv6 address whose last part is no port
                return null;
            }
            try {
                int port = Integer.parseInt(entry.substring(colon + 1));
                return host.isEmpty() || port < 1 || port > 65535 ? null : new Server(host, port);
            } catch (NumberFormatException e) {
                return null;
            }
        }

        /** Its IPv4 address if it has one. */
        String address() throws UnknownHostException {
            InetAddress[] all = InetAddress.getAllByName(host);
            for (InetAddress address : all) {
                if (address instanceof Inet4Address) {
                    return address.getHostAddress();
                }
            }
            return all[0].getHostAddress();
        }

        /** At most once a minute: an attempt fails every half second while a name cannot be resolved. */
        void complain(long now, UnknownHostException reason) {
            if (complained == 0 || now - complained >= COMPLAINT_NANOS) {
                complained = now;
                AgentLog.warn("Publish Server " + host + ":" + port + " cannot be found: " + reason.getMessage());
            }
        }
    }
}
