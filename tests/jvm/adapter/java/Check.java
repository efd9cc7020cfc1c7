import java.util.Objects;
import java.util.function.BooleanSupplier;

/** Checks that end the test program at the first failure, and a list runner. */
final class Check {
    interface Body {
        void run() throws Throwable;
    }

    private static boolean failed;

    private Check() {
    }

    static void run(String name, Body body) {
        try {
            body.run();
            System.out.println("ok " + name);
        } catch (Throwable t) {
            failed = true;
            System.out.println("FAILED: " + name);
            t.printStackTrace(System.out);
        }
    }

    /** The last call of every test program. */
    static void finish() {
        System.out.println(failed ? "FAILED" : "ALL PASSED");
        System.out.flush();
        if (failed) {
            System.exit(1);
        }
    }

    static void equal(Object expected, Object actual) {
        // Numbers of different boxes are compared by value.
        boolean same = expected instanceof Number a && actual instanceof Number b
                ? a.longValue() == b.longValue() : Objects.equals(expected, actual);
        if (!same) {
            throw new AssertionError("expected " + expected + ", got " + actual);
        }
    }

    static void that(boolean truth, String claim) {
        if (!truth) {
            throw new AssertionError(claim);
        }
    }

    /** Waits until something that another thread does has happened; up to 20 s, which a healthy run never needs. */
    static void until(String claim, BooleanSupplier truth) {
        long end = System.nanoTime() + 20_000_000_000L;
        while (!truth.getAsBoolean()) {
            that(System.nanoTime() < end, "in vain: " + claim);
            Thread.yield();
        }
    }
}
