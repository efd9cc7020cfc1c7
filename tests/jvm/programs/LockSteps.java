import com.velora.probe.ProbeController;
import com.velora.probe.ThreadManager;
import com.velora.probe.l3trace.BcmRuntime;
import com.velora.probe.lock.LockAnalysisRuntime;

/** What instrumented code reports when one request waits for a lock that another one holds. */
public final class LockSteps {
    private static final int TAKER = 11;
    private static final int HOLDER = 12;
    private static final byte SERVLET = 4;

    public static void main(String[] args) throws Exception {
        for (int i = 0; i < 200 && !ProbeController.isNativeProbeEnabled(); i++) {
            Thread.sleep(100);
        }
        BcmRuntime.announceClass(7, "shop.Cache", new int[] {TAKER, HOLDER}, new String[] {"get", "rebuild"},
                new String[] {"()V", "()V"});
        ThreadManager.startNativeHttpRequest(null, "checkout", "/shop", "/shop/checkout", "anna");
        System.out.println("acquired " + step(1, null) + " " + step(2, null));
        System.out.print("waited " + step(3, "report"));
        Thread.sleep(20);
        System.out.println(" " + step(4, "report"));
        System.out.println("released " + step(5, null) + " " + step(6, null));
        System.out.println("unknown " + step(0, null) + " " + step(7, null) + " " + step(-1, null) + " " + step(127, null));
        System.out.println("nameless " + LockAnalysisRuntime.appendEvent(LockAnalysisRuntime.BEGIN_CONTENTION, null, 0,
                (byte) 0, null, null, 0, 0) + " " + LockAnalysisRuntime.appendEvent(LockAnalysisRuntime.END_CONTENTION,
                null, 0, (byte) 0, null, null, 0, 0));
        ThreadManager.finishNativeHttpRequest(null, null, null);
        ProbeController.flushNativeProbe(5000);
        System.out.println("done");
    }

    private static boolean step(int kind, String owner) {
        return LockAnalysisRuntime.appendEvent((byte) kind, "shop/Stock", TAKER, owner == null ? 0 : SERVLET, owner,
                owner == null ? null : "/statistics", owner == null ? 0 : HOLDER, 1);
    }
}
