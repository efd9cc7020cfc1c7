import com.velora.command.CommandAgent;
import com.velora.command.ThreadDumpInfo;
import com.velora.command.heap.HeapUtil;
import com.velora.probe.ProbeController;
import com.velora.probe.ThreadManager;
import com.velora.probe.heap.HeapAnalysisRuntime;
import com.velora.probe.lock.LockAnalysisRuntime;
import java.util.concurrent.CountDownLatch;
import java.util.concurrent.locks.LockSupport;

/** Calls every native that looks at requests, threads, locks and the heap; prints what they answer. */
public final class Natives {
    static final class Marker {
        int a;
        long b;
    }

    static final Object LOCK = new Object();
    static volatile boolean ended;

    /** A thread with a record of its own that stays in body until the program ends. */
    static int started(String name, Runnable body) throws Exception {
        CountDownLatch ready = new CountDownLatch(1);
        int[] id = new int[1];
        Thread thread = new Thread(() -> {
            id[0] = ThreadManager.startNativeHttpRequest(null, name, "natives", "/" + name, "me");
            ready.countDown();
            body.run();
        }, name);
        thread.setDaemon(true);
        thread.start();
        ready.await();
        return id[0];
    }

    static void parkHere() {
        while (!ended) {
            LockSupport.park();
        }
    }

    static void blockHere() {
        synchronized (LOCK) {
            print("unblocked", "yes");
        }
    }

    static void spinHere() {
        while (!ended) {
            Thread.onSpinWait();
        }
    }

    static void print(String key, Object value) {
        System.out.println(key + "=" + value);
    }

    static int statusOnceIs(int id, int wanted) throws Exception {
        int status = ThreadManager.getNativeThreadStatus(id);
        for (int i = 0; i < 500 && status != wanted; i++) {
            Thread.sleep(10);
            status = ThreadManager.getNativeThreadStatus(id);
        }
        return status;
    }

    static void threads() throws Exception {
        int parked = started("parked", Natives::parkHere);
        int spinning = started("spinning", Natives::spinHere);
        synchronized (LOCK) {
            int blocked = started("blocked", Natives::blockHere);
            print("status.parked", statusOnceIs(parked, 3));
            print("status.blocked", statusOnceIs(blocked, 2));
            print("status.spinning", statusOnceIs(spinning, 1));
            print("status.unknown", ThreadManager.getNativeThreadStatus(1));
            String[] stack = ThreadManager.getStackTrace(parked, 40, 0);
            StringBuilder frames = new StringBuilder();
            for (int i = 0; i < stack.length && stack[i] != null; i += 3) {
                frames.append(stack[i]).append('.').append(stack[i + 1]).append(stack[i + 2]).append(' ');
            }
            print("stack.length", stack.length);
            print("stack.parked", frames);
            for (int i = 0; i < 2000; i++) { // whatever piles up, -Xcheck:jni tells
                ThreadManager.getStackTrace(spinning, 10, 0);
            }
            print("stack.none", ThreadManager.getStackTrace(parked, 0, 0));
            print("id.byName", CommandAgent.getThreadId("parked", "main") == parked);
            print("id.unknown", CommandAgent.getThreadId("parked", "nobody"));
            ThreadManager.setThreadStatus(parked, 32768);
            print("status.suspended", ThreadManager.getNativeThreadStatus(parked));
            ThreadManager.setThreadStatus(parked, 4);
            print("status.cancelled", ThreadManager.getNativeThreadStatus(parked));
            print("stack.cancelled", ThreadManager.getStackTrace(parked, 10, 0));
        }
    }

    static void tokens() {
        CommandAgent.startNativeGpsInvokeRequest();
        print("token.first", hex(CommandAgent.getNativeGpsToken()));
        print("token.again", hex(CommandAgent.getNativeGpsToken()));
        CommandAgent.endNativeGpsInvokeRequest();
        CommandAgent.startNativeGpsReceiveRequest(0x01020304);
        print("token.received", hex(CommandAgent.getNativeGpsToken()));
        CommandAgent.completeNativeGpsReceiveRequest(0x01020304);
    }

    static String hex(byte[] bytes) {
        StringBuilder text = new StringBuilder();
        for (byte b : bytes) {
            text.append(String.format("%02x", b));
        }
        return text.toString();
    }

    static void heap() {
        Marker[] markers = new Marker[1234];
        for (int i = 0; i < markers.length; i++) {
            markers[i] = new Marker();
        }
        print("heap.test", HeapUtil.testHeapDumpEnvironmentNative());
        StringBuffer summary = new StringBuffer();
        print("heap.snapshot", HeapUtil.getHeapSnapShotData(summary));
        String[] lines = summary.toString().split("\n");
        print("heap.lines", lines.length);
        for (String line : lines) {
            if (line.startsWith("Natives$Marker,")) {
                print("heap.marker", line);
            }
        }
        print("heap.objects", lines[0].split(",")[1]);
        HeapAnalysisRuntime.nativeHeapAllocationStart(5, 42, "Natives$Marker");
        HeapAnalysisRuntime.nativeHeapAllocationEnd(5, 42, "Natives$Marker");
        print("heap.kept", markers[1233].a + markers[0].b);
    }

    static void requests() {
        int mine = ThreadManager.getEnv();
        String wide = "\u20ac\ud83d\ude00".repeat(1000);
        print("http.id", ThreadManager.startNativeHttpRequest(new Object(), wide, "natives", wide, wide) == mine);
        print("ejb.id", ThreadManager.beginNativeEJBRequest("Bean", "call", "descriptor") == mine);
        print("iiop.id", ThreadManager.startIIOPClientRequest("Class", "method") == mine);
        ThreadManager.finishIIOPClientRequest();
        ThreadManager.endNativeEJBRequest("Bean", "call", "descriptor");
        ThreadManager.errorNativeHttpRequest(wide, "natives", "failed");
        ThreadManager.startIIOPServerRequest(null, null);
        ThreadManager.finishIIOPServerRequest();
        ThreadManager.startNativeHttpRequest(null, null, null, null, null);
        ThreadManager.startNativeHttpRequest(null, "inner", "natives", "/inner", "me");
        ThreadManager.finishNativeHttpRequest("JSP_CANCEL_REQUEST", null, null);
        ThreadManager.issueTraceRequest();
        for (byte kind = 0; kind <= 7; kind++) {
            print("lock." + kind, LockAnalysisRuntime.appendEvent(kind, "Natives", 7, (byte) 4, "request", "natives",
                    8, 1));
        }
        ThreadDumpInfo info = new ThreadDumpInfo();
        print("dump", CommandAgent.generateThreadDump(info) + " " + info.getFileName());
        print("dump.null", CommandAgent.generateThreadDump(null));
        for (int i = 0; i < 1000; i++) {
            ThreadManager.startNativeHttpRequest(null, "many", "natives", "/many", "me");
            ThreadManager.finishNativeHttpRequest("many", "natives", "/many");
        }
    }

    public static void main(String[] args) throws Exception {
        print("stack.disabled", ThreadManager.getStackTrace(1, 10, 0));
        for (int i = 0; i < 1500 && !ProbeController.isNativeProbeEnabled(); i++) {
            Thread.sleep(20);
        }
        print("enabled", ProbeController.isNativeProbeEnabled());
        ProbeController.setupGps("101");
        tokens();
        requests();
        threads();
        heap();
        ended = true;
        print("done", "yes");
    }
}
