import com.velora.probe.ProbeController;
import com.velora.probe.servlet.ServletProbe;

import jakarta.servlet.http.HttpServlet;
import jakarta.servlet.http.HttpServletRequest;
import jakarta.servlet.http.HttpServletResponse;

import java.io.IOException;
import java.io.InputStream;
import java.io.OutputStream;
import java.net.InetAddress;
import java.net.Socket;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.Arrays;

import jdk.jfr.Category;
import jdk.jfr.Configuration;
import jdk.jfr.Event;
import jdk.jfr.Recording;
import jdk.jfr.StackTrace;

import org.apache.catalina.Context;
import org.apache.catalina.startup.Tomcat;

/**
 * What a captured request adds to a request of an embedded Tomcat. Each contestant takes turns with the bare container
 * (A, B, A, B, ... with the probe switched inside one process), and the medians of the paired differences are reported:
 * our probe; a default Flight Recorder recording with one custom event that carries the same texts; and two
 * microseconds of known work, which tells what the measurement can see. Server and client share the process and, pinned
 * by the caller, one processor.
 *
 * <p>TomcatBench REQUESTS ROUNDS: requests of one half of a turn, and turns.
 */
public final class TomcatBench {
    private static final int WARM_UP_ROUNDS = 5;
    private static final long KNOWN_WORK_NS = 2000;
    private static volatile boolean recorderEvent;
    private static volatile boolean knownWork;

    @Category("Velora")
    @StackTrace(false)
    static class RequestEvent extends Event {
        String name;
        String application;
        String url;
        String user;
    }

    /** Answers with a fixed text, inside a custom event or with known work when asked to. */
    public static final class Hello extends HttpServlet {
        private static final long serialVersionUID = 1;
        private static final byte[] TEXT = "hello".getBytes(StandardCharsets.US_ASCII);

        @Override
        protected void doGet(HttpServletRequest request, HttpServletResponse response) throws IOException {
            RequestEvent event = null;
            if (recorderEvent) {
                event = new RequestEvent();
                event.begin();
            }
            if (knownWork) {
                for (long end = System.nanoTime() + KNOWN_WORK_NS; System.nanoTime() < end;) {
                    Thread.onSpinWait();
                }
            }
            response.setContentLength(TEXT.length);
            response.getOutputStream().write(TEXT);
            if (event != null) {
                event.name = "hello";
                event.application = request.getContextPath();
                event.url = request.getRequestURI();
                event.user = request.getRemoteUser();
                event.commit();
            }
        }
    }

    private interface Switch {
        void turn(boolean on) throws Exception;
    }

    /** One connection that stays open; an answer is as long as the first one was. */
    private static final class Client implements AutoCloseable {
        private static final byte[] GET =
                "GET /shop/hello HTTP/1.1\r\nHost: localhost\r\n\r\n".getBytes(StandardCharsets.US_ASCII);
        private final Socket socket;
        private final InputStream in;
        private final OutputStream out;
        private final byte[] buffer = new byte[8192];

        Client(int port) throws IOException {
            socket = new Socket(InetAddress.getLoopbackAddress(), port);
            socket.setTcpNoDelay(true);
            in = socket.getInputStream();
            out = socket.getOutputStream();
        }

        void request() throws IOException {
            out.write(GET);
            int length = 0;
            do {
                int read = in.read(buffer, length, buffer.length - length);
                if (read < 0) {
                    throw new IOException("the server closed the connection");
                }
                length += read;
            } while (!endsWithText(length));
        }

        private boolean endsWithText(int length) {
            byte[] text = Hello.TEXT;
            return length > text.length
                    && Arrays.equals(buffer, length - text.length, length, text, 0, text.length);
        }

        @Override
        public void close() throws IOException {
            socket.close();
        }
    }

    private TomcatBench() {
    }

    public static void main(String[] args) throws Exception {
        int requests = Integer.parseInt(args[0]);
        int rounds = Integer.parseInt(args[1]);
        Path base = Files.createTempDirectory(Path.of(System.getProperty("java.io.tmpdir")), "tomcat");
        Tomcat tomcat = start(base);
        awaitProbe();
        Recording recording = new Recording(Configuration.getConfiguration("default"));
        recording.enable(RequestEvent.class);
        try (Client client = new Client(tomcat.getConnector().getLocalPort())) {
            ServletProbe.switchOff();
            System.out.printf("%-46s %10s %10s%n", "ns per request (median of paired turns)", "bare", "added");
            report("nothing (A against A)", client, requests, rounds, on -> { });
            double ours = report("velora", client, requests, rounds, on -> {
                if (on) {
                    ServletProbe.switchOn();
                } else {
                    ServletProbe.switchOff();
                }
            });
            recording.start(); // runs through its contestant's turns: what it costs without events is small and stays
            double recorder = report("flight recorder, one custom event", client, requests, rounds,
                    on -> recorderEvent = on);
            recording.stop();
            recording.close();
            report("two microseconds of known work", client, requests, rounds, on -> knownWork = on);
            System.out.printf("velora / flight recorder: %.2f%n", ours / recorder);
        }
        tomcat.stop();
        tomcat.destroy();
    }

    private static Tomcat start(Path base) throws Exception {
        java.util.logging.Logger.getLogger("org.apache").setLevel(java.util.logging.Level.WARNING);
        Tomcat tomcat = new Tomcat();
        tomcat.setBaseDir(base.toString());
        tomcat.setHostname("localhost");
        tomcat.setPort(0);
        tomcat.getConnector().setProperty("address", "127.0.0.1");
        tomcat.getConnector().setProperty("maxKeepAliveRequests", "-1");
        Context context = tomcat.addContext("/shop", base.toString());
        Tomcat.addServlet(context, "hello", new Hello());
        context.addServletMappingDecoded("/hello", "hello");
        tomcat.start();
        return tomcat;
    }

    private static void awaitProbe() throws InterruptedException {
        for (int i = 0; i < 200 && !ProbeController.isNativeProbeEnabled(); i++) {
            Thread.sleep(100);
        }
        if (!ProbeController.isNativeProbeEnabled()) {
            throw new IllegalStateException("the probe did not come up");
        }
    }

    private static double report(String label, Client client, int requests, int rounds, Switch contestant)
            throws Exception {
        double[] bare = new double[rounds];
        double[] added = new double[rounds];
        for (int round = -WARM_UP_ROUNDS; round < rounds; round++) {
            contestant.turn(false);
            double without = run(client, requests);
            contestant.turn(true);
            double with = run(client, requests);
            if (round >= 0) {
                bare[round] = without;
                added[round] = with - without;
            }
        }
        contestant.turn(false);
        System.out.printf("%-46s %10.0f %10.0f%n", label, median(bare), median(added));
        return median(added);
    }

    private static double run(Client client, int requests) throws IOException {
        long start = System.nanoTime();
        for (int i = 0; i < requests; i++) {
            client.request();
        }
        return (System.nanoTime() - start) / (double) requests;
    }

    private static double median(double[] values) {
        double[] sorted = values.clone();
        Arrays.sort(sorted);
        return sorted[sorted.length / 2];
    }
}
