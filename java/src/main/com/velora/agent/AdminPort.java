package com.velora.agent;

import com.velora.probe.ProbeSystem;

import java.io.IOException;
import java.io.InputStream;
import java.net.InetAddress;
import java.net.ServerSocket;
import java.net.Socket;
import java.net.SocketTimeoutException;
import java.nio.charset.StandardCharsets;
import java.util.concurrent.Semaphore;

/**
 * The door for an operator's questions: one line in, a text out, and the connection is closed; {@link AdminCommands}
 * knows the answers. Listens on 127.0.0.1 only, since there is no authentication. Several callers are served at once, and
 * who says nothing loses its place soon, so that nobody keeps an operator out; who finds no place waits for one.
 */
public final class AdminPort {
    private static final byte[] LOOPBACK = {127, 0, 0, 1};
    private static final int BACKLOG = 16;
    private static final int MAX_REQUEST = 256; // bytes
    private static final int MAX_CALLERS = 8; // at once
    private static final int FIRST_BYTE_MILLIS = 500;
    private static final int READ_SECONDS = 5;
    private static final int WRITE_SECONDS = 10;
    private static final int PAUSE_MILLIS = 100;

    private static volatile int number; // 0: not open

    private final ServerSocket listener;
    private final Semaphore places = new Semaphore(MAX_CALLERS);

    private AdminPort(ServerSocket listener) {
        this.listener = listener;
    }

    /** What the records that open a connection tell of it; 0 when there is none. */
    public static int number() {
        return number;
    }

    /** Runs before the application's main method, so it loads no more than a socket needs. 0: any free port. */
    static void open(int port) {
        try {
            ServerSocket listener = new ServerSocket(port, BACKLOG, InetAddress.getByAddress(LOOPBACK));
            number = listener.getLocalPort();
            ProbeSystem.setServerIdentity(null, null, number);
            Workers.startDaemon("admin", new AdminPort(listener)::serve);
            // A thread that waits for callers holds up the VM's end.
            Runtime.getRuntime().addShutdownHook(Workers.daemon("admin-end", listener::close));
            AgentLog.info("The admin port is 127.0.0.1:" + number);
        } catch (IOException | SecurityException e) { // whoever needs the port sees this; the server runs on
            AgentLog.error("There is no admin port: cannot listen on 127.0.0.1:" + port, e);
        }
    }

    private void serve() throws InterruptedException {
        while (!listener.isClosed()) {
            places.acquire();
            Socket caller = null;
            try {
                caller = listener.accept();
                start(caller);
            } catch (Throwable t) { // memory, threads or descriptors have run out: trying at once would spin
                hangUp(caller);
                places.release();
                Thread.sleep(PAUSE_MILLIS);
            }
        }
    }

    private void start(Socket caller) {
        Workers.startDaemon("admin-caller", () -> serve(caller));
    }

    private static void hangUp(Socket caller) {
        try {
            if (caller != null) {
                caller.close();
            }
        } catch (IOException gone) {
            return;
        }
    }

    private void serve(Socket connection) {
        try (Socket caller = connection) {
            String request = readLine(caller);
            write(caller, request == null
                    ? AdminCommands.error("expected one line of at most " + MAX_REQUEST + " bytes, begun within "
                            + FIRST_BYTE_MILLIS + " ms and whole within " + READ_SECONDS + " s: " + AdminCommands.KNOWN)
                    : AdminCommands.answer(request));
        } catch (IOException hungUp) {
            return;
        } finally {
            places.release();
        }
    }

    /** Null when no whole line came in time. */
    private static String readLine(Socket caller) throws IOException {
        long end = System.nanoTime() + READ_SECONDS * 1_000_000_000L;
        InputStream in = caller.getInputStream();
        StringBuilder line = new StringBuilder();
        try {
            while (line.length() <= MAX_REQUEST) {
                long leftMillis = (end - System.nanoTime()) / 1_000_000;
                if (leftMillis <= 0) {
                    return null;
                }
                caller.setSoTimeout((int) (line.length() == 0 ? Math.min(FIRST_BYTE_MILLIS, leftMillis) : leftMillis));
                int c = in.read();
                if (c < 0) {
                    return null;
                }
                if (c == '\n') {
                    return line.toString();
                }
                line.append((char) c);
            }
            return null;
        } catch (SocketTimeoutException tooSlow) {
            return null;
        }
    }

    private static void write(Socket caller, String answer) throws IOException {
        byte[] bytes = answer.getBytes(StandardCharsets.UTF_8);
        Thread limit = Workers.startDaemon("admin-limit", () -> hangUpLate(caller));
        try {
            caller.getOutputStream().write(bytes);
        } finally {
            limit.interrupt();
        }
    }

    /**
     * A write has no time limit of its own; closing its socket ends it. The reset that lingering for 0 s makes of the
     * close tells the caller that its answer is not whole.
     */
    private static void hangUpLate(Socket caller) throws IOException {
        try {
            Thread.sleep(WRITE_SECONDS * 1000L);
            caller.setSoLinger(true, 0);
            caller.close();
        } catch (InterruptedException inTime) {
            return;
        }
    }
}
