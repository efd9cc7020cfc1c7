import com.velora.probe.ProbeController;
import com.velora.probe.ThreadManager;

import java.io.IOException;
import java.nio.file.DirectoryStream;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.Arrays;
import java.util.concurrent.CountDownLatch;

/**
 * What virtual threads cost their VM: a yield (one unmount and one mount) and a thread made and ended, in nanoseconds of
 * the carriers' CPU time, which neither the compiler's threads nor time taken by other processes stretch.
 * MountBench KIND: none has no captured request on them, request begins with one on each thread, which is what makes the
 * collector follow mounts and count CPU time. Without the agent only none can be asked for. Run by bench/mounts.sh.
 */
public final class MountBench {
    private static final int ROUNDS = 15;
    private static final int THREADS = 20;
    private static final int YIELDS = 20_000;
    private static final int MADE = 20_000;

    private interface Start {
        void start(Runnable body) throws Exception;
    }

    public static void main(String[] args) throws Exception {
        boolean captured = args[0].equals("request");
        if (captured) {
            while (!ProbeController.isNativeProbeEnabled()) {
                Thread.sleep(20);
            }
        }
        double[] yields = new double[ROUNDS];
        double[] made = new double[ROUNDS];
        for (int i = 0; i < ROUNDS; i++) {
            yields[i] = run(THREADS, captured, () -> {
                for (int k = 0; k < YIELDS; k++) {
                    Thread.yield();
                }
            }) / (THREADS * (double) YIELDS);
            made[i] = run(MADE, false, () -> { }) / MADE;
        }
        Arrays.sort(yields);
        Arrays.sort(made);
        System.out.printf("%.1f %.1f %.1f %.1f%n", yields[0], yields[ROUNDS / 4], made[0], made[ROUNDS / 4]);
    }

    private static double run(int threads, boolean captured, Runnable work) throws Exception {
        CountDownLatch ended = new CountDownLatch(threads);
        double start = carriersCpu();
        for (int i = 0; i < threads; i++) {
            Thread.ofVirtual().start(() -> {
                if (captured) {
                    ThreadManager.startNativeHttpRequest(null, "OrderServlet", "/shop", "/shop/order", "customer");
                }
                work.run();
                if (captured) {
                    ThreadManager.finishNativeHttpRequest(null, null, null);
                }
                ended.countDown();
            });
        }
        ended.await();
        return carriersCpu() - start;
    }

    /** As the kernel counts it, ns. */
    private static double carriersCpu() throws IOException {
        double sum = 0;
        try (DirectoryStream<Path> tasks = Files.newDirectoryStream(Path.of("/proc/self/task"))) {
            for (Path task : tasks) {
                if (Files.readString(task.resolve("comm")).startsWith("ForkJoinPool")) {
                    sum += Double.parseDouble(Files.readString(task.resolve("schedstat")).split(" ")[0]);
                }
            }
        }
        return sum;
    }
}
