import com.velora.probe.ProbeController;
import com.velora.probe.ThreadManager;

import java.io.File;

/**
 * Requests on threads that come and go: Churn SIGN ROUNDS THREADS PAIRS. Once the probe is enabled it makes the file
 * SIGN, runs that many rounds of that many threads with that many pairs each, and prints "produced N events".
 */
public final class Churn {
    public static void main(String[] args) throws Exception {
        for (int i = 0; i < 500 && !ProbeController.isNativeProbeEnabled(); i++) {
            Thread.sleep(20);
        }
        System.out.println("enabled " + ProbeController.isNativeProbeEnabled());
        Thread.sleep(500); // what was done for the start is over
        new File(args[0]).createNewFile();
        int rounds = Integer.parseInt(args[1]);
        int pairs = Integer.parseInt(args[3]);
        Thread[] threads = new Thread[Integer.parseInt(args[2])];
        for (int round = 0; round < rounds; round++) {
            for (int t = 0; t < threads.length; t++) {
                threads[t] = new Thread(() -> {
                    for (int i = 0; i < pairs; i++) {
                        ThreadManager.startNativeHttpRequest(null, "Churn", "/churn", "/churn/" + i, "user");
                        ThreadManager.finishNativeHttpRequest(null, null, null);
                    }
                });
                threads[t].start();
            }
            for (Thread thread : threads) {
                thread.join();
            }
        }
        System.out.println("produced " + 2L * rounds * threads.length * pairs + " events");
    }
}
