import java.util.ArrayList;
import java.util.List;

/** Garbage-collection events. Started with 60 and 61 on. */
final class Collections {
    private static final int WANTED = 1000; // collections under load, or what the time allows
    private static final int LOAD_SECONDS = 6;

    private static volatile Object sink;

    public static void main(String[] args) {
        Check.run("pairs", () -> pairs(5));
        Check.run("figures", Collections::figures);
        Check.run("offAndOnAgain", Collections::offAndOnAgain);
        Check.run("oneWithoutTheOther", Collections::oneWithoutTheOther);
        Check.run("noHangUnderLoad", Collections::noHangUnderLoad);
        Check.finish();
    }

    private static final List<TestAgent.Event> heard = new ArrayList<>();

    /** All start and finish events since the last forget(), in the order in which they came. */
    private static List<TestAgent.Event> hear() {
        heard.addAll(TestAgent.events(TestAgent.GC_START, TestAgent.GC_FINISH));
        return heard;
    }

    private static boolean isFinish(TestAgent.Event event) {
        return event.number("type") == TestAgent.GC_FINISH;
    }

    private static void forget() {
        hear();
        heard.clear();
    }

    private static void pairs(int collections) {
        forget();
        long begin = System.currentTimeMillis() * 1000 - 60_000_000L; // one that began before may be among them
        for (int i = 0; i < collections; i++) {
            TestAgent.runGC();
        }
        Check.until("a finish of each", () -> hear().stream()
                .filter(Collections::isFinish).count() > collections - 1);
        List<TestAgent.Event> all = new ArrayList<>(hear());
        if (isFinish(all.get(0))) {
            all.remove(0); // of a collection that began before
        }
        Check.that(all.size() >= 2 * collections - 1, all.size() + " events");
        for (int i = 0; i < all.size(); i++) {
            Check.equal(i % 2 != 0, isFinish(all.get(i)));
            Check.that(all.get(i).number("env") != 0, "no environment");
            Check.equal(all.get(0).get("tid"), all.get(i).get("tid"));
            long edge = all.get(i).number("edge");
            Check.that(edge >= (i == 0 ? begin : all.get(i - 1).number("edge")), "a pause at " + edge);
        }
    }

    private static void figures() {
        byte[][] held = new byte[20][];
        for (int i = 0; i < held.length; i++) {
            held[i] = new byte[1 << 20];
        }
        sink = held;
        pairs(1);
        TestAgent.Event last = null;
        for (TestAgent.Event event : heard) {
            last = isFinish(event) ? event : last;
        }
        long used = last.number("used");
        long total = last.number("total");
        Check.that(used >= 20 << 20, "used " + used);
        Check.that(used <= total, "used " + used + " of " + total);
        Check.that(total <= Runtime.getRuntime().maxMemory(), "total " + total);
        Check.equal(-1, last.number("objects"));
        sink = null;
    }

    private static void offAndOnAgain() {
        Check.equal(0, TestAgent.disable(TestAgent.GC_START));
        Check.equal(0, TestAgent.disable(TestAgent.GC_FINISH));
        for (int i = 0; i < 3; i++) {
            TestAgent.runGC();
        }
        Check.equal(0, TestAgent.enable(TestAgent.GC_START));
        Check.equal(0, TestAgent.enable(TestAgent.GC_FINISH));
        pairs(2);
    }

    private static void oneWithoutTheOther() {
        Check.equal(0, TestAgent.disable(TestAgent.GC_START));
        forget();
        TestAgent.runGC();
        Check.until("a finish", () -> !hear().isEmpty());
        Check.that(hear().stream().allMatch(Collections::isFinish), "a start");
        Check.equal(0, TestAgent.enable(TestAgent.GC_START));
        pairs(1);
    }

    /**
     * A thread that holds a raw monitor across JNI calls must not stop a collection, nor the other way round; with
     * collections that are asked for and such that the allocating threads bring about.
     */
    private static void noHangUnderLoad() throws Exception {
        long monitor = TestAgent.monitorCreate();
        boolean[] stop = {false};
        List<Thread> threads = new ArrayList<>();
        for (int i = 0; i < 2; i++) {
            Thread thread = new Thread(() -> {
                while (!stop[0]) {
                    TestAgent.holdAcrossJni(monitor, 4096);
                    Thread.onSpinWait();
                }
            });
            thread.start();
            threads.add(thread);
        }
        Thread allocating = new Thread(() -> {
            while (!stop[0]) {
                sink = new byte[16 << 10];
            }
        });
        allocating.start();
        threads.add(allocating);
        forget();
        long begin = System.nanoTime();
        int asked = 0;
        while (hear().size() < 2 * WANTED && System.nanoTime() - begin < LOAD_SECONDS * 1_000_000_000L) {
            TestAgent.runGC();
            asked++;
        }
        System.out.println(hear().size() / 2 + " collections, " + asked + " of them asked for");
        stop[0] = true;
        for (Thread thread : threads) {
            thread.join();
        }
        TestAgent.monitorDestroy(monitor);
        pairs(1);
    }
}
