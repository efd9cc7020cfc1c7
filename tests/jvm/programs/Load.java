import com.velora.probe.ProbeController;
import com.velora.probe.ThreadManager;

import java.util.concurrent.CountDownLatch;
import java.util.concurrent.atomic.AtomicLong;

/**
 * Produces request pairs as a server would: Load THREADS PAIRS PAIRS_PER_SECOND(0: full speed) SECONDS_TO_STAY. Waits
 * until the probe is enabled (at most 20 s, then goes on without), prints "produced N events" and "longest pause N ms",
 * stays for the given time, prints "done" and exits.
 */
public final class Load {
    public static void main(String[] args) throws Exception {
        int threads = Integer.parseInt(args[0]);
        int pairs = Integer.parseInt(args[1]);
        int perSecond = Integer.parseInt(args[2]);
        int stay = Integer.parseInt(args[3]);
        boolean wait = args.length < 5 || !args[4].equals("nowait");
        for (int i = 0; wait && i < 200 && !ProbeController.isNativeProbeEnabled(); i++) {
            Thread.sleep(100);
        }
        System.out.println("enabled " + ProbeController.isNativeProbeEnabled());
        System.out.flush();
        AtomicLong produced = new AtomicLong();
        AtomicLong longest = new AtomicLong();
        CountDownLatch done = new CountDownLatch(threads);
        for (int t = 0; t < threads; t++) {
            int number = t;
            Thread worker = new Thread(() -> {
                long calls = 0;
                long start = System.nanoTime();
                long worst = 0;
                for (int i = 0; i < pairs; i++) {
                    long before = System.nanoTime();
                    ThreadManager.startNativeHttpRequest(null, "Servlet" + number, "/load", "/load/" + i, "user");
                    ThreadManager.finishNativeHttpRequest(null, null, null);
                    worst = Math.max(worst, System.nanoTime() - before);
                    calls += 2;
                    if (perSecond > 0) {
                        long due = start + (i + 1) * 1_000_000_000L / perSecond;
                        while (System.nanoTime() < due) {
                            java.util.concurrent.locks.LockSupport.parkNanos(Math.max(1, due - System.nanoTime()));
                        }
                    }
                }
                produced.addAndGet(calls);
                longest.accumulateAndGet(worst, Math::max);
                done.countDown();
            }, "load-" + t);
            worker.start();
        }
        done.await();
        System.out.println("produced " + produced + " events");
        System.out.println("longest pause " + longest.get() / 1_000_000 + " ms");
        System.out.flush();
        for (int i = 0; i < stay * 10 && System.in.available() == 0; i++) {
            Thread.sleep(100);
        }
        System.out.println("done");
    }
}
