import com.velora.probe.ProbeController;

import java.util.ArrayList;
import java.util.List;

/** Holds a known object graph and threads at known places, says "ready", and ends with its standard input. */
public final class Asked {
    static final class KnownOrder {
        long number;
        int amount = 1;
    }

    static final class KnownItem {
        KnownOrder order;
        short count = 2;
    }

    static final List<Object> HELD = new ArrayList<>();

    public static void main(String[] args) throws Exception {
        for (int i = 0; i < 200 && !ProbeController.isNativeProbeEnabled(); i++) {
            Thread.sleep(100);
        }
        for (int i = 0; i < 4321; i++) {
            HELD.add(new KnownOrder());
            if (i < 1234) {
                HELD.add(new KnownItem());
            }
        }
        ThreadGroup group = new ThreadGroup("shop");
        synchronized (HELD) {
            start(group, "till 1", () -> pay("card", new int[0]));
            Thread waiter = start(group, "odd\tname\n\u00f6", Asked::sleep);
            while (waiter.getState() != Thread.State.TIMED_WAITING) {
                Thread.sleep(1);
            }
            if (args.length > 0 && args[0].equals("stopped")) {
                ProbeController.stopNativeProbe();
            } else if (args.length > 0) { // makes the list of threads as long as one likes
                start(group, "x".repeat(Integer.parseInt(args[0])), Asked::sleep);
            }
            System.out.println("ready");
            while (System.in.read() >= 0) { // until whoever started this has asked enough
                continue;
            }
        }
    }

    private static Thread start(ThreadGroup group, String name, Runnable body) {
        Thread thread = new Thread(group, body, name);
        thread.setDaemon(true);
        thread.start();
        return thread;
    }

    private static void pay(String how, int[] coins) {
        synchronized (HELD) { // never free while anybody asks
            HELD.add(how + coins.length);
        }
    }

    private static void sleep() {
        try {
            Thread.sleep(3_600_000);
        } catch (InterruptedException e) {
            Thread.currentThread().interrupt();
        }
    }
}
