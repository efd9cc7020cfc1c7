import com.velora.probe.Capture;
import com.velora.probe.ProbeController;
import com.velora.probe.RegisteredTexts;
import com.velora.probe.ThreadManager;

import java.lang.management.ManagementFactory;
import java.lang.management.ThreadMXBean;
import java.util.Arrays;
import java.util.concurrent.CyclicBarrier;

import jdk.jfr.Category;
import jdk.jfr.Enabled;
import jdk.jfr.Event;
import jdk.jfr.Recording;
import jdk.jfr.StackTrace;

/**
 * What a captured request costs its thread: the start and finish natives beside a Flight Recorder event that carries
 * the same four texts and, like ours, two readings of the thread's CPU time. One run measures all contestants in turn,
 * round after round, and reports medians, so that drift of the machine meets all of them alike.
 *
 * <p>PairBench PAIRS PAUSE_MS: a round is PAIRS requests of each contestant and a pause, in which their drainers get
 * their turn. Run by bench.sh with the agent inside and a Publish Server that takes everything.
 */
public final class PairBench {
    private static final int ROUNDS = 60;
    private static int pairs; // of a round
    private static int pauseMs; // behind every round
    private static final ThreadMXBean THREADS = ManagementFactory.getThreadMXBean();

    @Category("Velora")
    @StackTrace(false)
    @Enabled
    static class RequestEvent extends Event {
        String name;
        String application;
        String url;
        String user;
        long cpuStart;
        long cpuEnd;
    }

    private interface Pair {
        void run(String url);
    }

    /** As the servlet probe does: what repeats is handed over by number. */
    private static void velora(String url) {
        Capture.beginRegistered(Capture.SERVLET, RegisteredTexts.numberOf("OrderServlet"),
                RegisteredTexts.numberOf("/shop"), url, "customer", 0);
        Capture.end(Capture.SERVLET, 0, false);
    }

    /** Every text copied, by the natives with fixed names. */
    private static void copied(String url) {
        ThreadManager.startNativeHttpRequest(null, "OrderServlet", "/shop", url, "customer");
        ThreadManager.finishNativeHttpRequest(null, null, null);
    }

    private static void flightRecorder(String url) {
        RequestEvent event = new RequestEvent();
        event.cpuStart = THREADS.getCurrentThreadCpuTime();
        event.begin();
        event.name = "OrderServlet";
        event.application = "/shop";
        event.url = url;
        event.user = "customer";
        event.end();
        event.cpuEnd = THREADS.getCurrentThreadCpuTime();
        event.commit();
    }

    private static void clocksOnly(String url) {
        THREADS.getCurrentThreadCpuTime();
        THREADS.getCurrentThreadCpuTime();
    }

    private static final String[] NAMES = {"velora", "velora, all texts copied", "flight recorder", "two cpu clocks alone"};
    private static final Pair[] PAIR = {PairBench::velora, PairBench::copied, PairBench::flightRecorder,
        PairBench::clocksOnly};

    public static void main(String[] args) throws Exception {
        pairs = Integer.parseInt(args[0]);
        pauseMs = Integer.parseInt(args[1]);
        for (int i = 0; i < 200 && !ProbeController.isNativeProbeEnabled(); i++) {
            Thread.sleep(100);
        }
        if (!ProbeController.isNativeProbeEnabled()) {
            throw new IllegalStateException("the probe did not come up");
        }
        Recording recording = new Recording();
        recording.enable(RequestEvent.class);
        recording.start();
        String[] known = new String[64];
        for (int i = 0; i < known.length; i++) {
            known[i] = "/shop/order/" + (100000 + i) + "/items";
        }
        System.out.printf("%-34s %12s %12s %8s%n", "ns per request (median)", "1 thread", "2 threads", "ratio");
        report("url seen before", known, false);
        report("url never seen before", known, true);
        recording.stop();
        recording.close();
    }

    private static void report(String label, String[] known, boolean fresh) throws Exception {
        double[][] one = measure(1, known, fresh);
        double[][] two = measure(2, known, fresh);
        for (int p = 0; p < PAIR.length; p++) {
            double first = median(one[p]);
            double second = median(two[p]);
            System.out.printf("%-34s %12.0f %12.0f %8.2f%n", NAMES[p] + ", " + label, first, second, second / first);
        }
    }

    /** Per contestant, ns per pair of every round after the warm-up. */
    private static double[][] measure(int threads, String[] known, boolean fresh) throws Exception {
        double[][] result = new double[PAIR.length][ROUNDS * threads];
        CyclicBarrier barrier = new CyclicBarrier(threads);
        Thread[] workers = new Thread[threads];
        for (int t = 0; t < threads; t++) {
            int number = t;
            workers[t] = new Thread(() -> {
                try {
                    for (int round = -20; round < ROUNDS; round++) {
                        for (int p = 0; p < PAIR.length; p++) {
                            barrier.await();
                            double ns = round(PAIR[p], known, fresh, round, number);
                            if (round >= 0) {
                                result[p][round * threads + number] = ns;
                            }
                        }
                        Thread.sleep(pauseMs); // the drainers of both contestants get their turn
                    }
                } catch (Exception e) {
                    throw new IllegalStateException(e);
                }
            });
            workers[t].start();
        }
        for (Thread worker : workers) {
            worker.join();
        }
        return result;
    }

    private static double round(Pair pair, String[] known, boolean fresh, int round, int thread) {
        String[] urls = known;
        if (fresh) {
            urls = new String[pairs];
            for (int i = 0; i < pairs; i++) {
                urls[i] = "/shop/order/" + thread + "/" + round + "/" + i;
            }
        }
        long start = System.nanoTime();
        for (int i = 0; i < pairs; i++) {
            pair.run(urls[fresh ? i : i & 63]);
        }
        return (System.nanoTime() - start) / (double) pairs;
    }

    private static double median(double[] values) {
        double[] sorted = values.clone();
        Arrays.sort(sorted);
        return sorted[sorted.length / 2];
    }
}
