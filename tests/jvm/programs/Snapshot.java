import com.velora.command.heap.HeapUtil;
import com.velora.probe.ProbeController;

import java.io.InputStream;
import java.lang.management.ManagementFactory;
import java.util.ArrayList;
import java.util.List;
import javax.management.ObjectName;

/**
 * Holds a known object graph, prints the VM's own class histogram and the collector's summary of the heap, as often as
 * its argument says: "result N", then lines "histogram COUNT BYTES CLASS" and "summary LINE". The second argument
 * "loading" lets other threads load classes meanwhile.
 */
public final class Snapshot {
    private static volatile boolean stop;

    static class KnownNode {
        KnownNode next;
        long stamp = 1;
        int value = 2;
        short small = 3;
        byte tiny = 4;
        boolean flag = true;
        char letter = 'x';
        double ratio = 1.5;
        float part = 2.5f;
        Object leaf;
    }

    static final class KnownLeaf extends KnownNode {
        int extra = 5;
    }

    static final class KnownEmpty {
    }

    static final List<Object> HELD = new ArrayList<>();

    public static void main(String[] args) throws Exception {
        for (int i = 0; i < 200 && !ProbeController.isNativeProbeEnabled(); i++) {
            Thread.sleep(100);
        }
        build();
        boolean loading = args.length > 1 && args[1].equals("loading");
        List<Thread> loaders = new ArrayList<>();
        for (int i = 0; loading && i < 2; i++) {
            Thread thread = new Thread(Snapshot::loadClasses, "loader-" + i);
            thread.start();
            loaders.add(thread);
        }
        histogram(); // whatever the two need is loaded, linked and cached from here on
        HeapUtil.getHeapSnapShotData(new StringBuffer());
        for (int i = 0; i < Integer.parseInt(args[0]); i++) {
            String histogram = histogram(); // one text: its lines would be counted as the program's strings
            StringBuffer summary = new StringBuffer();
            int test = HeapUtil.testHeapDumpEnvironmentNative();
            int result = HeapUtil.getHeapSnapShotData(summary);
            print(i, test, result, histogram, summary.toString());
        }
        stop = true;
        for (Thread thread : loaders) {
            thread.join();
        }
        System.out.println("no buffer " + HeapUtil.getHeapSnapShotData(null));
        System.out.println("done " + HELD.size());
    }

    private static void build() {
        KnownNode before = null;
        for (int i = 0; i < 12_345; i++) {
            KnownNode node = new KnownNode();
            node.next = before;
            before = node;
            if (i < 777) {
                node.leaf = new KnownLeaf();
            }
        }
        HELD.add(before);
        for (int i = 0; i < 55; i++) {
            HELD.add(new KnownEmpty());
        }
        HELD.add(new KnownNode[3][1000]);
        HELD.add(new int[500_000]);
        HELD.add(new long[300_000]);
        HELD.add(new String[200_000]);
        HELD.add(new boolean[100_000]);
        HELD.add(new char[100_000]);
    }

    private static String histogram() throws Exception {
        Object text = ManagementFactory.getPlatformMBeanServer().invoke(
                new ObjectName("com.sun.management:type=DiagnosticCommand"), "gcClassHistogram",
                new Object[] {null}, new String[] {String[].class.getName()});
        return text.toString();
    }

    private static void print(int round, int test, int result, String histogram, String summary) {
        StringBuilder out = new StringBuilder();
        out.append("round ").append(round).append("\ntest ").append(test).append("\nresult ").append(result).append('\n');
        for (String line : histogram.split("\n")) {
            String[] words = line.trim().split("\\s+"); // "  1:   12345   592560  KnownNode (module)"
            if (words.length >= 4 && words[0].endsWith(":")) {
                out.append("histogram ").append(words[1]).append(' ').append(words[2]).append(' ').append(words[3])
                        .append('\n');
            }
        }
        for (String line : summary.split("\n")) {
            out.append("summary ").append(line).append('\n');
        }
        System.out.print(out);
    }

    /** Defines the same class in loader after loader; what is dropped may be unloaded at any moment. */
    private static void loadClasses() {
        try (InputStream in = Snapshot.class.getResourceAsStream("Snapshot$KnownEmpty.class")) {
            byte[] bytes = in.readAllBytes();
            while (!stop) {
                new ClassLoader(null) {
                    Class<?> define() {
                        return defineClass("Snapshot$KnownEmpty", bytes, 0, bytes.length);
                    }
                }.define();
                Thread.sleep(0, 200_000);
            }
        } catch (Exception e) {
            throw new IllegalStateException(e);
        }
    }
}
