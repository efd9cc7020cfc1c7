import com.sun.management.HotSpotDiagnosticMXBean;
import com.velora.command.heap.HeapUtil;
import com.velora.probe.ProbeController;

import java.io.File;
import java.lang.management.ManagementFactory;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.concurrent.Callable;
import java.util.concurrent.atomic.AtomicLong;
import java.util.stream.Stream;

/**
 * Fills the heap with small objects (HeapSnapshotBench OBJECTS FOLDER), then takes the collector's summary and the VM's
 * own heap dump (what jcmd GC.heap_dump runs) in turn, three times each, and prints one table line each: seconds, MB of live heap per second, the
 * longest time a Java thread stood still, what resident memory grew by at its peak, and what of that is still there
 * afterwards.
 */
public final class HeapSnapshotBench {
    private static final class Small {
        private final Small next;
        private final int number;

        Small(Small next, int number) {
            this.next = next;
            this.number = number;
        }
    }

    private static final AtomicLong longestPause = new AtomicLong();

    public static void main(String[] args) throws Exception {
        for (int i = 0; i < 200 && !ProbeController.isNativeProbeEnabled(); i++) {
            Thread.sleep(100);
        }
        int objects = Integer.parseInt(args[0]);
        Small[] chains = new Small[1000]; // a single chain would be deeper than any real heap
        for (int i = 0; i < objects; i++) {
            chains[i % chains.length] = new Small(chains[i % chains.length], i);
        }
        System.gc();
        Runtime runtime = Runtime.getRuntime();
        double megabytes = (runtime.totalMemory() - runtime.freeMemory()) / 1e6;
        Thread clock = new Thread(HeapSnapshotBench::watchPauses, "pause clock");
        clock.setDaemon(true);
        clock.start();
        System.out.printf("%d small objects, %.0f MB of live heap%n%n", objects, megabytes);
        System.out.printf("| | seconds | MB/s | longest pause, ms | extra resident, MB | stays, MB |%n|---|---|---|---|---|---|%n");
        for (int round = 1; round <= 3; round++) {
            measure("summary, run " + round, megabytes, () -> summary(objects));
            measure("VM heap dump, run " + round, megabytes, () -> vmDump(new File(args[1], "dump.hprof")));
        }
        System.out.println("chains " + chains.length + ", last number " + chains[0].number + ", next "
                + (chains[0].next != null));
    }

    private static String summary(int objects) {
        StringBuffer text = new StringBuffer();
        int result = HeapUtil.getHeapSnapShotData(text);
        boolean counted = text.toString().contains("," + objects + ",");
        return result == 0 && counted ? "" : " FAILED: result " + result + ", counted " + counted;
    }

    private static String vmDump(File file) throws Exception {
        Files.deleteIfExists(file.toPath());
        ManagementFactory.getPlatformMXBean(HotSpotDiagnosticMXBean.class).dumpHeap(file.getPath(), true);
        return file.length() > 0 ? "" : " FAILED: no file";
    }

    private static void measure(String what, double megabytes, Callable<String> work) throws Exception {
        Thread.sleep(500);
        Files.writeString(Path.of("/proc/self/clear_refs"), "5"); // the peak starts anew at what is resident now
        long before = status("VmRSS:");
        longestPause.set(0);
        long start = System.nanoTime();
        String failure = work.call();
        double seconds = (System.nanoTime() - start) / 1e9;
        Thread.sleep(50);
        System.out.printf("| %s%s | %.2f | %.0f | %d | %d | %d |%n", what, failure, seconds, megabytes / seconds,
                longestPause.get() / 1_000_000, Math.max(0, status("VmHWM:") - before) / 1000,
                (status("VmRSS:") - before) / 1000);
    }

    private static long status(String key) throws Exception {
        try (Stream<String> lines = Files.lines(Path.of("/proc/self/status"))) {
            return lines.filter(line -> line.startsWith(key)).mapToLong(line -> Long.parseLong(line.split("\\s+")[1]))
                    .findFirst().orElseThrow();
        }
    }

    private static void watchPauses() {
        long last = System.nanoTime();
        for (;;) {
            java.util.concurrent.locks.LockSupport.parkNanos(1_000_000);
            long now = System.nanoTime();
            long gap = now - last;
            longestPause.accumulateAndGet(gap, Math::max);
            last = now;
        }
    }
}
