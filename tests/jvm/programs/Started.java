import java.io.BufferedReader;
import java.io.InputStreamReader;

/** Tells what of the agent a program can see: its worker threads, and environment variables that it must not see. */
public final class Started {
    public static void main(String[] args) throws Exception {
        for (int i = 0; i < 100 && workers() == 0 && args.length > 0; i++) {
            Thread.sleep(20); // they start beside main
        }
        System.out.println("workers " + workers());
        System.out.println("own " + System.getenv("am.home"));
        Process child = new ProcessBuilder("/usr/bin/env").start();
        long inherited = 0;
        try (BufferedReader lines = new BufferedReader(new InputStreamReader(child.getInputStream()))) {
            inherited = lines.lines().filter(line -> line.startsWith("am.")).count();
        }
        System.out.println("inherited " + inherited);
    }

    private static long workers() {
        return Thread.getAllStackTraces().keySet().stream()
                .filter(thread -> thread.getName().startsWith("Velora-event-")).count();
    }
}
