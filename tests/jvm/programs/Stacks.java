import com.velora.command.CommandAgent;
import com.velora.command.ThreadDumpInfo;
import com.velora.probe.ProbeController;
import com.velora.probe.ThreadManager;

import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import java.util.concurrent.CountDownLatch;
import java.util.concurrent.locks.LockSupport;

/**
 * Asks for stack and status of threads in every state and prints the answers, one fact a line:
 * "status NAME WORD", "frame NAME INDEX CLASS METHOD SIGNATURE", "lengths NAME DEPTH ELEMENTS FRAMES".
 */
public final class Stacks {
    private static final Object LOCK = new Object();
    private static final Object BELL = new Object();
    private static volatile boolean stop;

    public static void main(String[] args) throws Exception {
        for (int i = 0; i < 200 && !ProbeController.isNativeProbeEnabled(); i++) {
            Thread.sleep(100);
        }
        List<Thread> threads = new ArrayList<>();
        int[] ids;
        synchronized (LOCK) {
            threads.add(started("blocked", () -> block("a", 1), Thread.State.BLOCKED));
            threads.add(started("waiting", Stacks::await, Thread.State.WAITING));
            threads.add(started("sleeping", () -> doze(new int[1], 3_600_000L), Thread.State.TIMED_WAITING));
            threads.add(started("parked", Stacks::park, Thread.State.WAITING));
            threads.add(started("spinning", () -> spin(0, 0.0, null), Thread.State.RUNNABLE));
            for (Thread thread : threads) {
                tell(thread.getName(), idOf(thread));
            }
            ids = threads.stream().mapToInt(Stacks::idOf).toArray();
            askOddly(threads.get(0));
            change(threads.get(4));
            cancel(threads.get(3));
            askOften(idOf(threads.get(1)), Integer.parseInt(args[0]));
        }
        stop = true;
        synchronized (BELL) {
            BELL.notifyAll();
        }
        LockSupport.unpark(threads.get(3));
        threads.get(2).interrupt();
        end(threads, ids);
        dump();
        System.out.println("done");
    }

    private static Thread started(String name, Runnable body, Thread.State state) throws InterruptedException {
        CountDownLatch running = new CountDownLatch(1);
        Thread thread = new Thread(() -> {
            running.countDown();
            body.run();
        }, name);
        thread.setDaemon(true); // a failed run ends
        thread.start();
        running.await();
        while (thread.getState() != state || !isInside(thread)) {
            Thread.sleep(1);
        }
        return thread;
    }

    /** Whether the thread has left the latch behind and stands in its body. */
    private static boolean isInside(Thread thread) {
        return Arrays.stream(thread.getStackTrace())
                .anyMatch(frame -> frame.getClassName().equals("Stacks")
                        && List.of("block", "await", "doze", "park", "spin").contains(frame.getMethodName()));
    }

    private static void block(String text, int number) {
        synchronized (LOCK) {
            stop |= text.length() == number + 1;
        }
    }

    private static void await() {
        synchronized (BELL) {
            while (!stop) {
                try {
                    BELL.wait();
                } catch (InterruptedException e) {
                    return;
                }
            }
        }
    }

    private static void doze(int[] unused, long millis) {
        try {
            Thread.sleep(millis + unused[0]);
        } catch (InterruptedException e) {
            Thread.currentThread().interrupt();
        }
    }

    private static void park() {
        while (!stop) {
            LockSupport.park();
        }
    }

    private static long spin(int start, double unused, String[][] texts) {
        long turns = start;
        while (!stop) {
            turns++;
        }
        return texts == null ? turns : 0;
    }

    private static int idOf(Thread thread) {
        return CommandAgent.getThreadId(thread.getName(), thread.getThreadGroup().getName());
    }

    private static void tell(String name, int id) {
        System.out.println("status " + name + " " + ThreadManager.getNativeThreadStatus(id));
        String[] stack = ThreadManager.getStackTrace(id, 40, 0);
        if (stack == null) {
            System.out.println("stack " + name + " null");
            return;
        }
        for (int i = 0; i + 2 < stack.length && stack[i] != null; i += 3) {
            System.out.println("frame " + name + " " + i / 3 + " " + stack[i] + " " + stack[i + 1] + " " + stack[i + 2]);
        }
    }

    private static void askOddly(Thread thread) {
        int id = idOf(thread);
        for (int depth : new int[] {1, 2, 1000, 1_000_000, 0, -1, Integer.MIN_VALUE}) {
            String[] stack = ThreadManager.getStackTrace(id, depth, 0);
            long filled = stack == null ? 0 : Arrays.stream(stack).filter(text -> text != null).count();
            System.out.println("lengths " + thread.getName() + " " + depth + " " + (stack == null ? "null" : stack.length)
                    + " " + filled);
        }
        System.out.println("own group only " + CommandAgent.getThreadId(thread.getName(), "elsewhere"));
        System.out.println("unknown name " + CommandAgent.getThreadId("nobody", thread.getThreadGroup().getName()));
        System.out.println("no name " + CommandAgent.getThreadId(null, null));
        System.out.println("unknown id " + ThreadManager.getNativeThreadStatus(-77) + " "
                + ThreadManager.getStackTrace(-77, 10, 0));
    }

    private static void change(Thread thread) {
        int id = idOf(thread);
        for (int change : new int[] {32768, 1, 8192}) {
            ThreadManager.setThreadStatus(id, change);
            System.out.println("status after" + change + " " + ThreadManager.getNativeThreadStatus(id));
        }
        thread.interrupt();
        System.out.println("status interrupted " + ThreadManager.getNativeThreadStatus(id));
    }

    private static void cancel(Thread thread) {
        int id = idOf(thread);
        ThreadManager.setThreadStatus(id, 32768);
        ThreadManager.setThreadStatus(id, 4);
        tell("cancelled", id);
    }

    private static void askOften(int id, int times) {
        String[] first = ThreadManager.getStackTrace(id, 20, 0);
        int different = 0;
        for (int i = 0; i < times / 10; i++) { // warms up what a first call looks up
            ThreadManager.getStackTrace(id, 20, 0);
        }
        long before = residentKilobytes();
        for (int i = 0; i < times; i++) {
            different += Arrays.equals(first, ThreadManager.getStackTrace(id, 20, 0)) ? 0 : 1;
        }
        System.out.println("repeated " + times + " different " + different);
        System.out.println("grown " + (residentKilobytes() - before));
    }

    private static long residentKilobytes() {
        try (var lines = java.nio.file.Files.lines(java.nio.file.Path.of("/proc/self/status"))) {
            return lines.filter(line -> line.startsWith("VmRSS:")).mapToLong(line -> Long.parseLong(line.split("\\s+")[1]))
                    .findFirst().orElse(0);
        } catch (java.io.IOException e) {
            return 0;
        }
    }

    /** Ended threads: at once, when their record may still wait to be drained, and once it is gone. */
    private static void end(List<Thread> threads, int[] ids) throws InterruptedException {
        for (Thread thread : threads) {
            thread.join();
        }
        for (int i = 0; i < ids.length; i++) {
            tell("ended-" + threads.get(i).getName(), ids[i]);
        }
        for (int wait = 0; wait < 200 && ThreadManager.getNativeThreadStatus(ids[0]) != -1; wait++) {
            Thread.sleep(50);
        }
        tell("gone", ids[0]);
    }

    private static void dump() {
        ThreadDumpInfo info = new ThreadDumpInfo();
        System.out.println("dump " + CommandAgent.generateThreadDump(info) + " " + info.getFileName() + " "
                + info.getOffSet());
        System.out.println("dump of null " + CommandAgent.generateThreadDump(null));
        System.out.println("dump of a string " + CommandAgent.generateThreadDump("text"));
    }
}
