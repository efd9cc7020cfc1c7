import com.velora.command.CommandAgent;
import com.velora.command.ThreadDumpInfo;
import com.velora.probe.ProbeController;
import com.velora.probe.ThreadManager;
import com.velora.probe.lock.LockAnalysisRuntime;

/** Calls the natives of requests and locks, oddly at times; prints what they answer. */
public final class Natives {
    static void print(String key, Object value) {
        System.out.println(key + "=" + value);
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
        requests();
        print("done", "yes");
    }
}
