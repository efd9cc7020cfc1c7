import com.velora.probe.ProbeController;
import com.velora.probe.l3trace.BcmRuntime;

import java.io.IOException;
import java.io.InputStream;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.stream.Stream;

/**
 * Defines a class in a new loader, announces it, reports a method of it, withdraws it and drops the loader: LoadUnload
 * ROUNDS. Prints the resident size, in KB, after a quarter of the rounds and at the end.
 */
public final class LoadUnload {
    static final class Guest {
        private Guest() {
        }

        static int first(int a) {
            return a + 1;
        }

        static String second(String b) {
            return b;
        }
    }

    private static final class Host extends ClassLoader {
        Host() {
            super(null);
        }

        Class<?> define(byte[] bytes) throws ClassNotFoundException {
            Class<?> guest = defineClass("LoadUnload$Guest", bytes, 0, bytes.length);
            resolveClass(guest);
            return guest;
        }
    }

    public static void main(String[] args) throws Exception {
        for (int i = 0; i < 200 && !ProbeController.isNativeProbeEnabled(); i++) {
            Thread.sleep(100);
        }
        int rounds = Integer.parseInt(args[0]);
        byte[] bytes;
        try (InputStream in = LoadUnload.class.getResourceAsStream("LoadUnload$Guest.class")) {
            bytes = in.readAllBytes();
        }
        int refused = 0;
        for (int round = 1; round <= rounds; round++) {
            refused += round(round, bytes) ? 0 : 1;
            if (round % 250 == 0) {
                System.gc();
                Thread.sleep(10); // lets events leave
            }
            if (round == rounds / 4) {
                System.out.println("resident early " + residentKilobytes());
            }
        }
        System.gc();
        System.out.println("resident late " + residentKilobytes());
        System.out.println("refused " + refused);
        System.out.println("unloaded " + java.lang.management.ManagementFactory.getClassLoadingMXBean()
                .getUnloadedClassCount());
        ProbeController.flushNativeProbe(5000);
        System.out.println("done");
    }

    private static boolean round(int id, byte[] bytes) throws Exception {
        Class<?> guest = new Host().define(bytes);
        int[] methods = {id * 4, id * 4 + 1, id * 4 + 2};
        boolean ok = BcmRuntime.announceClass(id, guest.getName() + id, methods,
                new String[] {"<init>", "first", "second"},
                new String[] {"()V", "(I)I", "(Ljava/lang/String;)Ljava/lang/String;"});
        ok &= BcmRuntime.appendL3Event((byte) 0, methods[1]) && BcmRuntime.appendL3Event((byte) 1, methods[1]);
        return BcmRuntime.withdrawClass(id) && ok;
    }

    private static long residentKilobytes() throws IOException {
        try (Stream<String> lines = Files.lines(Path.of("/proc/self/status"))) {
            return lines.filter(line -> line.startsWith("VmRSS:")).mapToLong(line -> Long.parseLong(line.split("\\s+")[1]))
                    .findFirst().orElseThrow();
        }
    }
}
