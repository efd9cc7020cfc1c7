import com.sun.management.HotSpotDiagnosticMXBean;
import java.io.File;
import java.io.IOException;
import java.lang.management.ManagementFactory;
import java.nio.file.Files;
import java.nio.file.Path;

/**
 * What a heap dump costs, beside the VM's own dump of living objects in the same run. No test; argument: millions
 * of objects, four fifths small instances that form lists, one fifth small arrays.
 */
final class DumpCost {
    static final class Item {
        final Item next;
        final long number;
        final Object other;

        Item(Item next, long number, Object other) {
            this.next = next;
            this.number = number;
            this.other = other;
        }
    }

    public static void main(String[] args) throws IOException {
        int objects = (int) (Double.parseDouble(args[0]) * 1_000_000);
        Item[] lists = new Item[1000];
        for (int i = 0; i < objects; i += 5) {
            int[] array = new int[6];
            for (int n = 0; n < 4; n++) {
                lists[i / 5 % 1000] = new Item(lists[i / 5 % 1000], i, array);
            }
        }
        System.gc();
        var vm = ManagementFactory.getPlatformMXBean(HotSpotDiagnosticMXBean.class);
        for (int round = 0; round < 3; round++) {
            long before = peak(true);
            long start = System.nanoTime();
            long bytes = TestAgent.dumpUnread();
            report("adapter", bytes, start, before);
            File file = new File(args[1], "own.hprof");
            before = peak(true);
            start = System.nanoTime();
            vm.dumpHeap(file.getPath(), true);
            report("VM     ", file.length(), start, before);
            Files.delete(file.toPath());
        }
        System.out.println(lists[7].number);
    }

    private static void report(String who, long bytes, long start, long before) throws IOException {
        double seconds = (System.nanoTime() - start) / 1e9;
        System.out.printf("%s: %.0f MB in %.2f s, %.0f MB/s, peak memory +%d MB%n", who, bytes / 1e6, seconds,
                bytes / 1e6 / seconds, (peak(false) - before) >> 10);
    }

    /** The process's largest resident size so far, KB; reset makes it the present one first. */
    private static long peak(boolean reset) throws IOException {
        if (reset) {
            Files.writeString(Path.of("/proc/self/clear_refs"), "5");
        }
        for (String line : Files.readAllLines(Path.of("/proc/self/status"))) {
            if (line.startsWith("VmHWM:")) {
                return Long.parseLong(line.replaceAll("\\D", ""));
            }
        }
        return 0;
    }
}
