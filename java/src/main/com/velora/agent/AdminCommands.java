package com.velora.agent;

import com.velora.command.CommandAgent;
import com.velora.command.heap.HeapUtil;
import com.velora.probe.ProbeController;
import com.velora.probe.ProbeSystem;
import com.velora.probe.ThreadManager;

import java.util.HashSet;
import java.util.Set;
import java.util.concurrent.atomic.AtomicBoolean;

/**
 * What can be asked at the admin port. An answer is text, every line of it with its end, fields separated by tabs; what
 * cannot be answered gives one line "error: ...".
 */
final class AdminCommands {
    static final String KNOWN = "the commands are heap, threads, stack ID and status";

    private static final int MAX_FRAMES = 1024;
    private static final int BASE_STATUS = 0x3FFF; // without the two bits
    private static final int SUSPENDED = 0x8000;
    private static final int INTERRUPTED = 0x4000;

    /** A snapshot stops the application, so ten times as long has to pass before the next one. */
    private static final int HEAP_PAUSE_FACTOR = 10;

    private static final AtomicBoolean heapBusy = new AtomicBoolean();
    private static long nextHeapNanos = System.nanoTime(); // from when on; changed while heapBusy only

    private AdminCommands() {
    }

    static String answer(String request) {
        try {
            String[] words = request.trim().split("\\s+");
            if (words.length == 1 && words[0].equals("heap")) {
                return heap();
            }
            return quickAnswer(words);
        } catch (Throwable t) { // of memory, most likely: costs this answer only
            return error(t.toString());
        }
    }

    /** One at a time, so that asking often costs the server no more than asking once. */
    private static synchronized String quickAnswer(String[] words) {
        if (words[0].equals("stack")) {
            return words.length == 2 ? stack(words[1]) : error("expected: stack ID");
        }
        switch (words.length == 1 ? words[0] : "") {
            case "threads":
                return threads();
            case "status":
                return status();
            default:
                return error("unknown command; " + KNOWN);
        }
    }

    static String error(String what) {
        return "error: " + oneLine(what) + "\n";
    }

    private static String heap() {
        if (!ProbeController.isNativeProbeEnabled()) {
            return error("the probe is disabled");
        }
        if (!heapBusy.compareAndSet(false, true)) {
            return error("another heap snapshot is being taken");
        }
        try {
            long begin = System.nanoTime();
            if (nextHeapNanos - begin > 0) {
                return error("the last heap snapshot was a moment ago; the next can be taken in "
                        + (nextHeapNanos - begin + 999_999_999) / 1_000_000_000 + " s");
            }
            StringBuffer summary = new StringBuffer();
            int result = HeapUtil.getHeapSnapShotData(summary);
            long end = System.nanoTime();
            nextHeapNanos = end + HEAP_PAUSE_FACTOR * (end - begin);
            return heap(result, summary);
        } finally {
            heapBusy.set(false);
        }
    }

    private static String heap(int result, StringBuffer summary) {
        switch (result) {
            case 0:
                return summary.length() > 0 ? summary.toString() : error("the collector had no memory for the summary");
            case 1:
                return error("there is not enough memory for a heap snapshot: it may take 4.5 times what the heap holds, "
                        + "and 1.6 times internal.max.heapdump.size (MB, in datacollector.properties) must be free");
            case 2:
                return error("another heap snapshot is being taken");
            case 3:
                return error("the Java heap has no room for the summary");
            case 4:
                return error("the VM takes no heap snapshots");
            default:
                return error("the heap snapshot ended with result " + result);
        }
    }

    /** Id, status, group, name. Of several threads with the same names the collector finds one. */
    private static String threads() {
        StringBuilder out = new StringBuilder();
        Set<Integer> listed = new HashSet<>();
        for (Thread thread : allThreads()) {
            ThreadGroup group = thread == null ? null : thread.getThreadGroup(); // null: it has ended
            int id = group == null ? 0 : CommandAgent.getThreadId(thread.getName(), group.getName());
            if (id != 0 && listed.add(id)) {
                out.append(Integer.toUnsignedString(id)).append('\t').append(statusOf(id)).append('\t')
                        .append(oneLine(group.getName())).append('\t').append(oneLine(thread.getName())).append('\n');
            }
        }
        return out.length() > 0 ? out.toString() : error("no thread is monitored");
    }

    private static Thread[] allThreads() {
        ThreadGroup root = Thread.currentThread().getThreadGroup();
        while (root.getParent() != null) {
            root = root.getParent();
        }
        Thread[] threads = new Thread[2 * root.activeCount() + 64]; // more may come before they are listed
        root.enumerate(threads);
        return threads;
    }

    /** The thread's status, then class.method and signature of each frame, callee first. */
    private static String stack(String untrustedId) {
        int id;
        try {
            id = Integer.parseUnsignedInt(untrustedId);
        } catch (NumberFormatException e) {
            return error("expected: stack ID, where ID is the number of a thread as the command threads lists it");
        }
        if (!ProbeController.isNativeProbeEnabled()) {
            return error("the probe is disabled");
        }
        String[] frames = ThreadManager.getStackTrace(id, MAX_FRAMES, 0);
        if (frames == null) {
            return error("there is no monitored thread " + Integer.toUnsignedString(id) + ", or it has ended");
        }
        StringBuilder out = new StringBuilder(statusOf(id)).append('\n');
        for (int i = 0; i + 2 < frames.length && frames[i] != null; i += 3) {
            out.append(oneLine(frames[i].replace('/', '.'))).append('.').append(oneLine(frames[i + 1])).append('\t')
                    .append(oneLine(frames[i + 2])).append('\n');
        }
        return out.toString();
    }

    private static String status() {
        StringBuilder out = new StringBuilder();
        line(out, "node", ProbeSystem.getNodeName());
        line(out, "server", ProbeSystem.getAppServerName());
        line(out, "process", ProbeSystem.getProcessId());
        line(out, "process CPU time (ms)", ProbeSystem.getProcessCpuTime());
        line(out, "agent home", ProbeSystem.getHome());
        line(out, "probe", ProbeController.isNativeProbeEnabled() ? "enabled" : "disabled");
        line(out, "monitoring level", ProbeController.getMonitoringLevel());
        String memory = String.valueOf(ThreadManager.getNativeProbeStatus()); // "what: number"
        line(out, "native memory (bytes)", memory.substring(memory.indexOf(':') + 1).trim());
        return out.toString();
    }

    private static void line(StringBuilder out, String what, Object value) {
        out.append(what).append('\t').append(oneLine(String.valueOf(value))).append('\n');
    }

    private static String statusOf(int id) {
        int status = ThreadManager.getNativeThreadStatus(id);
        if (status == -1) {
            return "unknown";
        }
        String[] words = {"other", "runnable", "blocked", "waiting", "ended"};
        int base = status & BASE_STATUS;
        return (base < words.length ? words[base] : "other") + ((status & SUSPENDED) != 0 ? ", suspended" : "")
                + ((status & INTERRUPTED) != 0 ? ", interrupted" : "");
    }

    /** A name may hold anything; in an answer it must not end its field or its line. */
    private static String oneLine(String text) {
        return text.replaceAll("\\p{Cntrl}", "?");
    }
}
