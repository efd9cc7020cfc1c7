import java.util.concurrent.atomic.AtomicInteger;

/** Monitors (whose own rules the unit tests know), ids, switches and start-up; runs however the agent came in. */
final class Basics {
    public static void main(String[] args) {
        Check.run("initDoneOnce", () -> Check.equal(1, TestAgent.events(TestAgent.INIT_DONE).size()));
        Check.run("whatCannotBeEnabled", Basics::whatCannotBeEnabled);
        Check.run("whatCannotBeRequested", Basics::whatCannotBeRequested);
        Check.run("nothingWhileDisabled", Basics::nothingWhileDisabled);
        Check.run("nothingWithoutHandler", Basics::nothingWithoutHandler);
        Check.run("endlessWaitAndNotify", Basics::endlessWaitAndNotify);
        Check.run("interruptStaysSet", Basics::interruptStaysSet);
        Check.run("idsAndBack", Basics::idsAndBack);
        Check.run("localStorage", Basics::localStorage);
        Check.run("cpuTime", Basics::cpuTime);
        Check.run("systemThread", () -> Check.equal(0, TestAgent.createThread()));
        Check.run("exceptionsStayPending", Basics::exceptionsStayPending);
        Check.finish();
    }

    private static void whatCannotBeEnabled() {
        for (int type : new int[] {1, 4, 37, 50, 59, 0, 62, 63, 64, 2000, -1, Integer.MIN_VALUE, 0x10000000 + 42}) {
            Check.equal(TestAgent.NOT_AVAILABLE, TestAgent.enable(type));
            Check.equal(TestAgent.NOT_AVAILABLE, TestAgent.disable(type));
        }
    }

    private static void whatCannotBeRequested() {
        for (int type : new int[] {4, 50, 59, 46, 60, 34, 0, -1, 2000}) {
            Check.equal(TestAgent.NOT_AVAILABLE, TestAgent.request(type, 0));
        }
        Check.equal(TestAgent.FAIL, TestAgent.request(TestAgent.CLASS_LOAD, 0));
        Check.equal(TestAgent.FAIL, TestAgent.request(TestAgent.CLASS_LOAD, 12345));
        Check.equal(TestAgent.FAIL, TestAgent.request(TestAgent.CLASS_LOAD, TestAgent.idOf(new Object())));
        Check.equal(TestAgent.FAIL, TestAgent.request(TestAgent.THREAD_START, 0));
        Check.equal(TestAgent.FAIL, TestAgent.request(TestAgent.THREAD_START, 4096));
    }

    private static void nothingWhileDisabled() throws Exception {
        Thread quiet = new Thread(() -> { });
        quiet.start();
        quiet.join();
        TestAgent.runGC();
        Class.forName("Basics$Late");
        for (int type : new int[] {33, 34, 42, 43, 60, 61}) {
            Check.equal(0, TestAgent.events(type).size());
        }
        Check.equal(0, TestAgent.hookedClasses());
    }

    static final class Late {
    }

    private static void nothingWithoutHandler() throws Exception {
        Check.equal(0, TestAgent.enable(TestAgent.THREAD_START));
        TestAgent.listen(false);
        Thread unheard = new Thread(() -> { }, "unheard");
        unheard.start();
        unheard.join();
        TestAgent.listen(true);
        Check.equal(0, TestAgent.disable(TestAgent.THREAD_START));
        Check.that(TestAgent.events(TestAgent.THREAD_START).stream()
                .noneMatch(e -> e.get("thread").equals("unheard")), "heard");
    }

    private static void endlessWaitAndNotify() throws Exception {
        long monitor = TestAgent.monitorCreate();
        AtomicInteger waiting = new AtomicInteger();
        AtomicInteger woken = new AtomicInteger();
        Thread[] waiters = new Thread[3];
        for (int i = 0; i < waiters.length; i++) {
            waiters[i] = new Thread(() -> {
                TestAgent.monitorEnter(monitor);
                TestAgent.monitorEnter(monitor);
                waiting.incrementAndGet();
                TestAgent.monitorWait(monitor, 0);
                woken.incrementAndGet();
                TestAgent.monitorExit(monitor);
                TestAgent.monitorExit(monitor);
            });
            waiters[i].start();
        }
        Check.until("all wait", () -> waiting.get() == waiters.length);
        TestAgent.monitorEnter(monitor); // succeeds only when the last one really gave the monitor up
        TestAgent.monitorNotifyAll(monitor);
        Check.equal(0, woken.get());
        TestAgent.monitorExit(monitor);
        for (Thread waiter : waiters) {
            waiter.join();
        }
        Check.equal(waiters.length, woken.get());
        TestAgent.monitorDestroy(monitor);
        TestAgent.monitorDestroy(0);
    }

    private static void interruptStaysSet() {
        long monitor = TestAgent.monitorCreate();
        Thread.currentThread().interrupt();
        TestAgent.monitorEnter(monitor);
        long start = System.nanoTime();
        TestAgent.monitorWait(monitor, 30);
        long ms = (System.nanoTime() - start) / 1_000_000;
        TestAgent.monitorExit(monitor);
        Check.that(ms >= 29, "the interrupt ended the wait after " + ms + " ms");
        Check.that(Thread.interrupted(), "the interrupt is gone");
    }

    private static void idsAndBack() throws Exception {
        Object object = new Object();
        long id = TestAgent.idOf(object);
        Check.that(id != 0 && id == TestAgent.idOf(object), "one id per object");
        TestAgent.runGC(); // moves it
        Check.equal(id, TestAgent.idOf(object));
        Check.that(TestAgent.objectOf(id) == object, "back to the object");
        Check.that(TestAgent.idOf(new Object()) != id, "ids differ");
        Check.equal(0, TestAgent.idOf(null));
        Check.equal(null, TestAgent.objectOf(0));
        Check.equal(null, TestAgent.objectOf(id + 1));
        for (Class<?> type : new Class<?>[] {Basics.class, int[].class, String[].class, int.class, Runnable.class}) {
            Check.that(TestAgent.objectOf(TestAgent.idOf(type)) == type, "class ids lead back");
        }
        long method = TestAgent.methodId(Basics.class.getDeclaredMethod("idsAndBack"));
        Check.equal(TestAgent.idOf(Basics.class), TestAgent.methodClass(method));
        Check.equal(TestAgent.idOf(Thread.currentThread()), TestAgent.threadObject(TestAgent.env()));
        Check.equal(0, TestAgent.methodClass(0));
        Check.equal(0, TestAgent.threadObject(0));
    }

    private static void localStorage() throws Exception {
        long mine = TestAgent.env();
        Check.equal(0, TestAgent.getLocal(mine));
        TestAgent.setLocal(mine, 42);
        long[] other = new long[2];
        Thread thread = new Thread(() -> {
            other[0] = TestAgent.getLocal(TestAgent.env());
            TestAgent.setLocal(TestAgent.env(), 43);
            other[1] = TestAgent.getLocal(mine);
        });
        thread.start();
        thread.join();
        Check.equal(0, other[0]);
        Check.equal(42, other[1]);
        Check.equal(42, TestAgent.getLocal(mine));
        TestAgent.setLocal(0, 1);
        Check.equal(0, TestAgent.getLocal(0));
    }

    private static void cpuTime() {
        long before = TestAgent.cpuTime();
        long wall = System.nanoTime();
        while (System.nanoTime() - wall < 20_000_000) {
            Thread.onSpinWait();
        }
        long used = TestAgent.cpuTime() - before;
        Check.that(used > 0 && used < 5_000_000_000L, "used " + used + " ns");
    }

    private static void exceptionsStayPending() throws Exception {
        long method = TestAgent.methodId(Basics.class.getDeclaredMethod("exceptionsStayPending"));
        Exception mine = new Exception("mine");
        try {
            TestAgent.askWhileThrowing(method, mine);
            throw new AssertionError("the exception is lost");
        } catch (Exception e) {
            Check.that(e == mine, "another exception: " + e);
        }
    }
}
