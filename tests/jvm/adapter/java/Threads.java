import java.util.ArrayList;
import java.util.HashSet;
import java.util.List;
import java.util.Set;
import java.util.concurrent.CountDownLatch;
import java.util.concurrent.locks.LockSupport;

/** Thread events, status, traces, suspension. Started with events 33, 34 and 46 on. */
final class Threads {
    public static void main(String[] args) throws Exception {
        List<TestAgent.Event> early = TestAgent.events(TestAgent.THREAD_START);
        Check.run("mainBeganOnce", () -> mainBeganOnce(early));
        Check.run("startAndEndInPairs", Threads::startAndEndInPairs);
        Check.run("namesAndGroups", Threads::namesAndGroups);
        Check.run("requestedStart", Threads::requestedStart);
        Check.run("threadsThatBeganEarly", Threads::threadsThatBeganEarly);
        Check.run("statusTable", Threads::statusTable);
        Check.run("traceOfOthers", Threads::traceOfOthers);
        Check.run("traceDepth", Threads::traceDepth);
        Check.run("suspendAndResume", Threads::suspendAndResume);
        Check.run("endedThreads", Threads::endedThreads);
        Check.run("localsStayFlat", Threads::localsStayFlat);
        Check.finish();
    }

    private static void mainBeganOnce(List<TestAgent.Event> early) {
        // The VM's own start event of the main thread may still be on its way when main runs.
        List<TestAgent.Event> all = new ArrayList<>(early);
        all.addAll(TestAgent.events(TestAgent.THREAD_START));
        long seen = all.stream().filter(e -> e.number("meant") == TestAgent.env()).count();
        Check.equal(1, seen);
        TestAgent.Event main = all.stream().filter(e -> e.number("meant") == TestAgent.env()).findFirst().get();
        Check.equal("main", main.get("thread"));
        Check.equal("main", main.get("group"));
        Check.equal("system", main.get("parent"));
        Check.equal(TestAgent.idOf(Thread.currentThread()), main.number("id"));
    }

    private static void startAndEndInPairs() throws Exception {
        TestAgent.events(TestAgent.THREAD_START);
        TestAgent.events(TestAgent.THREAD_END);
        Set<Long> tids = new HashSet<>();
        Set<String> clashes = new HashSet<>();
        for (int round = 0; round < 20; round++) {
            Thread[] threads = new Thread[10];
            for (int i = 0; i < threads.length; i++) {
                threads[i] = new Thread(() -> {
                    synchronized (tids) {
                        tids.add(TestAgent.tid());
                    }
                    long env = TestAgent.env(); // may have been another thread's a moment ago
                    if (TestAgent.getLocal(env) != 0) {
                        clashes.add("inherited a local");
                    }
                    TestAgent.setLocal(env, 7);
                }, "short-" + round);
                threads[i].start();
            }
            for (Thread thread : threads) {
                thread.join();
            }
        }
        List<TestAgent.Event> starts = new ArrayList<>();
        List<TestAgent.Event> ends = new ArrayList<>();
        Check.until("all ends are seen", () -> {
            starts.addAll(TestAgent.events(TestAgent.THREAD_START));
            ends.addAll(TestAgent.events(TestAgent.THREAD_END));
            return tids.stream().allMatch(tid -> ends.stream().anyMatch(e -> e.number("tid") == tid));
        });
        Check.equal(Set.of(), clashes);
        Check.equal(200, starts.stream().filter(e -> e.get("thread").startsWith("short-")).count());
        for (TestAgent.Event start : starts) { // sent by the new thread itself
            Check.equal(start.get("env"), start.get("meant"));
        }
        for (long tid : tids) {
            Check.equal(1, starts.stream().filter(e -> e.number("tid") == tid).count());
            Check.equal(1, ends.stream().filter(e -> e.number("tid") == tid).count());
        }
    }

    private static void namesAndGroups() throws Exception {
        ThreadGroup outer = new ThreadGroup("outer");
        ThreadGroup inner = new ThreadGroup(outer, "inner");
        TestAgent.events(TestAgent.THREAD_START);
        Thread thread = new Thread(inner, () -> { }, "na\u00efve");
        thread.start();
        thread.join();
        TestAgent.Event event = TestAgent.events(TestAgent.THREAD_START).get(0);
        Check.equal("na\u00efve", event.get("thread"));
        Check.equal("inner", event.get("group"));
        Check.equal("outer", event.get("parent"));
        Check.equal(0, event.number("requested"));
    }

    /** A thread that reports its JNIEnv and then does what it is told. */
    private static final class Worker {
        final Thread thread;
        volatile long env;
        private final CountDownLatch known = new CountDownLatch(1);

        Worker(Runnable body) throws Exception {
            thread = new Thread(() -> {
                env = TestAgent.env();
                known.countDown();
                body.run();
            }, "worker");
            thread.setDaemon(true);
            thread.start();
            known.await();
        }
    }

    private static volatile boolean stop;
    private static volatile long spun;

    private static void spin() {
        while (!stop) {
            spun++;
        }
    }

    private static void requestedStart() throws Exception {
        stop = false;
        Worker worker = new Worker(Threads::spin);
        TestAgent.events(TestAgent.THREAD_START);
        Check.equal(0, TestAgent.request(TestAgent.THREAD_START, worker.env));
        List<TestAgent.Event> sent = TestAgent.events(TestAgent.THREAD_START);
        Check.equal(1, sent.size());
        TestAgent.Event event = sent.get(0);
        Check.equal(1, event.number("requested"));
        Check.equal(TestAgent.env(), event.number("env"));
        Check.equal(TestAgent.tid(), event.number("tid"));
        Check.equal(worker.env, event.number("meant"));
        Check.equal("worker", event.get("thread"));
        Check.equal(TestAgent.idOf(worker.thread), event.number("id"));
        stop = true;
        worker.thread.join();
    }

    /** "Reference Handler" and its like began before thread events exist. */
    private static void threadsThatBeganEarly() {
        Thread[] all = new Thread[64];
        int count = rootGroup().enumerate(all);
        Thread early = null;
        for (int i = 0; i < count; i++) {
            if (all[i].getName().equals("Reference Handler")) {
                early = all[i];
            }
        }
        Check.that(early != null, "no Reference Handler");
        // A dump knows the JNIEnv of every thread's block.
        TestAgent.idOf(early);
        Check.equal(0, TestAgent.dump(2));
        long env = 0;
        for (String root : TestAgent.dumpRoots(TestAgent.idOf(early))) {
            if (root.startsWith("6 ")) {
                env = Long.parseLong(root.split(" ")[1]);
            }
        }
        Check.that(env != 0, "its JNIEnv is not known");
        Check.equal(TestAgent.idOf(early), TestAgent.threadObject(env));
        int status = TestAgent.status(env);
        Check.that(status == 1 || status == 3, "status " + status); // it waits inside the VM
        TestAgent.events(TestAgent.THREAD_START);
        Check.equal(0, TestAgent.request(TestAgent.THREAD_START, env));
        TestAgent.Event event = TestAgent.events(TestAgent.THREAD_START).get(0);
        Check.equal("Reference Handler", event.get("thread"));
        Check.equal("system", event.get("group"));
        Check.equal("<null>", event.get("parent"));
    }

    private static ThreadGroup rootGroup() {
        ThreadGroup group = Thread.currentThread().getThreadGroup();
        while (group.getParent() != null) {
            group = group.getParent();
        }
        return group;
    }

    private static void until(int status, long env) {
        Check.until("status " + status + ", last " + TestAgent.status(env), () -> TestAgent.status(env) == status);
    }

    private static void statusTable() throws Exception {
        Object lock = new Object();
        stop = false;
        Worker spinning = new Worker(Threads::spin);
        until(1, spinning.env);
        Worker blocked;
        synchronized (lock) {
            blocked = new Worker(() -> {
                synchronized (lock) {
                    spun++;
                }
            });
            until(2, blocked.env);
        }
        blocked.thread.join();
        Worker waiting = new Worker(() -> {
            synchronized (lock) {
                try {
                    lock.wait();
                } catch (InterruptedException e) {
                    spun++;
                }
            }
        });
        until(3, waiting.env);
        waiting.thread.interrupt();
        waiting.thread.join();
        Worker sleeping = new Worker(() -> {
            try {
                Thread.sleep(60_000);
            } catch (InterruptedException e) {
                Thread.currentThread().interrupt();
                spin();
            }
        });
        until(3, sleeping.env);
        sleeping.thread.interrupt();
        until(0x4000 | 1, sleeping.env);
        Worker parked = new Worker(() -> {
            while (!stop) {
                LockSupport.park();
            }
        });
        until(3, parked.env);
        TestAgent.suspend(spinning.env);
        Check.equal(0x8000 | 1, TestAgent.status(spinning.env));
        TestAgent.resume(spinning.env);
        until(1, spinning.env);
        Check.equal(1, TestAgent.status(TestAgent.env()));
        stop = true;
        LockSupport.unpark(parked.thread);
        for (Worker worker : List.of(spinning, sleeping, parked)) {
            worker.thread.join();
        }
    }

    private static void traceOfOthers() throws Exception {
        stop = false;
        Worker worker = new Worker(Threads::spin);
        List<TestAgent.Frame> frames = new ArrayList<>();
        Check.until("it spins", () -> {
            frames.clear();
            frames.addAll(TestAgent.frames(worker.env, 20));
            return !frames.isEmpty() && frames.get(0).classId() == TestAgent.idOf(Threads.class);
        });
        Check.that(frames.get(0).line() > 1, "line " + frames.get(0).line());
        Check.equal(TestAgent.idOf(Thread.class), frames.get(frames.size() - 1).classId());
        stop = true;
        worker.thread.join();

        List<TestAgent.Frame> mine = TestAgent.frames(TestAgent.env(), 20);
        Check.equal(TestAgent.idOf(TestAgent.class), mine.get(0).classId()); // the native on top
        Check.equal(-3, mine.get(0).line());
        Check.equal(TestAgent.idOf(TestAgent.class), mine.get(1).classId());
        Check.equal(TestAgent.idOf(Threads.class), mine.get(2).classId());
        Check.equal(new Throwable().getStackTrace()[0].getLineNumber() - 5, mine.get(2).line());
    }

    private static int deep(int left) {
        return left == 0 ? TestAgent.frames(TestAgent.env(), 2000).size() : deep(left - 1);
    }

    private static void traceDepth() {
        Check.equal(1, TestAgent.frames(TestAgent.env(), 1).size());
        Check.equal(0, TestAgent.frames(TestAgent.env(), 0).size());
        int shallow = deep(0);
        Check.that(shallow < 20, "frames " + shallow);
        Check.equal(shallow + 700, deep(700)); // more than fits into the adapter's small buffer
        Check.equal(0, TestAgent.frames(0, 5).size());
        Check.equal(0, TestAgent.frames(64, 5).size());
    }

    private static void suspendAndResume() throws Exception {
        stop = false;
        Worker one = new Worker(Threads::spin);
        Worker two = new Worker(Threads::spin);
        Check.that(TestAgent.hasRun(one.env), "never suspended counts as having run");
        TestAgent.suspend(one.env);
        TestAgent.suspend(two.env);
        long before = spun;
        for (int i = 0; i < 100; i++) {
            Thread.yield();
        }
        Check.equal(before, spun);
        TestAgent.resume(one.env);
        Check.until("it runs on", () -> spun != before);
        Check.until("it has used CPU", () -> TestAgent.hasRun(one.env));
        TestAgent.suspend(one.env);
        Check.that(TestAgent.hasRun(one.env), "it had run between the suspensions");
        Check.equal(0x8000 | 1, TestAgent.status(one.env));
        TestAgent.resume(one.env);
        TestAgent.resume(two.env);
        Check.equal("0 0", TestAgent.suspendTwo(one.env, two.env, true));
        Check.equal("-1 -1", TestAgent.suspendTwo(one.env, 0, true)); // suspended already; unknown
        Check.equal("0 0", TestAgent.suspendTwo(one.env, two.env, false));
        stop = true;
        one.thread.join();
        two.thread.join();
    }

    private static void endedThreads() throws Exception {
        Worker worker = new Worker(() -> { });
        worker.thread.join();
        Check.until("its end is known", () -> TestAgent.threadObject(worker.env) == 0);
        Check.equal(0, TestAgent.status(worker.env));
        Check.equal(0, TestAgent.frames(worker.env, 10).size());
        Check.equal(TestAgent.FAIL, TestAgent.request(TestAgent.THREAD_START, worker.env));
        TestAgent.suspend(worker.env);
        Check.equal(0, TestAgent.getLocal(worker.env));
    }

    /** -Xcheck:jni complains when references pile up. */
    private static void localsStayFlat() throws Exception {
        stop = false;
        Worker worker = new Worker(Threads::spin);
        TestAgent.traceOften(worker.env, TestAgent.idOf(Threads.class), 5000);
        TestAgent.traceOften(TestAgent.env(), TestAgent.idOf(Threads.class), 5000);
        TestAgent.events(TestAgent.CLASS_LOAD);
        stop = true;
        worker.thread.join();
    }
}
