import com.velora.probe.ProbeController;
import com.velora.probe.ThreadManager;
import java.lang.management.ManagementFactory;
import java.util.concurrent.CountDownLatch;
import java.util.concurrent.ExecutorService;
import java.util.concurrent.Executors;
import java.util.concurrent.Semaphore;
import java.util.concurrent.locks.LockSupport;

/**
 * Requests on virtual threads: THREADS at the same time that sleep and burn in turns, one nested in another each, then
 * SHORT ones that come and go. Says what each thread took by its own clock, and what the collector's memory is.
 */
public class VirtualThreads {
    private static volatile double sink;

    public static void main(String[] args) throws Exception {
        int threads = Integer.parseInt(args[0]);
        int shortOnes = Integer.parseInt(args[1]);
        while (!ProbeController.isNativeProbeEnabled()) {
            Thread.sleep(20);
        }
        ThreadManager.startNativeHttpRequest(null, "Platform", "/app", "/platform", null);
        ThreadManager.finishNativeHttpRequest("", "", "");
        int rounds = roundsFor(5);
        System.out.println("before " + ThreadManager.getNativeProbeStatus().trim());
        try (Closing executor = new Closing()) {
            CountDownLatch allIn = new CountDownLatch(threads);
            for (int i = 0; i < threads; i++) {
                int number = i;
                executor.service.execute(() -> sleepAndBurn(number, rounds, allIn));
            }
        }
        try (Closing executor = new Closing()) {
            Semaphore room = new Semaphore(50);
            for (int i = 0; i < shortOnes; i++) {
                room.acquire();
                executor.service.execute(() -> {
                    request("Short", "/short", () -> Thread.yield());
                    room.release();
                });
            }
        }
        System.out.println("done");
        System.in.read(); // the spares have gone by now, or not
        System.out.println("after " + ThreadManager.getNativeProbeStatus().trim());
    }

    /** Thread n burns n % 4 times 5 ms in each of two turns, within the inner request the second time. */
    private static void sleepAndBurn(int n, int rounds, CountDownLatch allIn) {
        long start = System.nanoTime();
        request("Outer", "/outer/" + n, () -> {
            int id = ThreadManager.getEnv();
            allIn.countDown();
            allIn.await();
            Thread.sleep(10 + n % 7 * 10);
            burn(n % 4 * rounds);
            request("Inner", "/inner/" + n, () -> {
                Thread.sleep(30);
                burn(n % 4 * rounds);
            });
            // Naming a virtual thread must do no harm.
            ThreadManager.getStackTrace(id, 8, 0);
            if (id == 0 || ThreadManager.getEnv() != id || ThreadManager.getNativeThreadStatus(id) == -1) {
                System.out.println("wrong id " + id + ", " + ThreadManager.getEnv() + ", " + ThreadManager.getNativeThreadStatus(id));
            }
        });
        System.out.println("took " + n + " " + (System.nanoTime() - start) / 1e6);
    }

    private interface Work {
        void run() throws Exception;
    }

    private static void request(String name, String url, Work work) {
        ThreadManager.startNativeHttpRequest(null, name, "/app", url, null);
        try {
            work.run();
        } catch (Exception e) {
            System.out.println(e);
        }
        ThreadManager.finishNativeHttpRequest(name, "/app", url);
    }

    private static int roundsFor(int ms) {
        burn(20000); // warm
        burn(20000);
        long cpu = ManagementFactory.getThreadMXBean().getCurrentThreadCpuTime();
        burn(20000);
        cpu = ManagementFactory.getThreadMXBean().getCurrentThreadCpuTime() - cpu;
        return (int) (20000L * ms * 1_000_000 / cpu);
    }

    private static void burn(int rounds) {
        double sum = 0;
        for (int i = 0; i < rounds; i++) {
            for (int k = 1; k < 100; k++) {
                sum += Math.sqrt(k + sum);
            }
        }
        sink = sum;
    }

    /** An executor of virtual threads, by name because this is compiled for Java 17; closing waits for all. */
    private static final class Closing implements AutoCloseable {
        final ExecutorService service;

        Closing() throws Exception {
            service = (ExecutorService) Executors.class.getMethod("newVirtualThreadPerTaskExecutor").invoke(null);
        }

        @Override
        public void close() {
            service.shutdown();
            while (!service.isTerminated()) {
                LockSupport.parkNanos(5_000_000);
            }
        }
    }
}
