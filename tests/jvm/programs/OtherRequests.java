import com.velora.command.CommandAgent;
import com.velora.command.MethodLevelModule;
import com.velora.probe.ProbeController;
import com.velora.probe.ThreadManager;
import com.velora.probe.heap.HeapAnalysisRuntime;
import com.velora.probe.l3trace.BcmRuntime;

import java.util.Arrays;

/**
 * At the first line on standard input, one of each kind of work that is not a servlet's; at every further line, one more
 * traced method. Ends with its input.
 */
public final class OtherRequests {
    private static final byte ENTRY = 0;
    private static final byte EXIT = 1;

    public static void main(String[] args) throws Exception {
        for (int i = 0; i < 200 && !ProbeController.isNativeProbeEnabled(); i++) {
            Thread.sleep(100);
        }
        System.in.read(); // the test says when the connection is up: a flush does not wait for a server
        System.out.println("thread " + ThreadManager.getEnv());
        calls();
        correlated();
        classes();
        ThreadManager.issueTraceRequest();
        ProbeController.flushNativeProbe(5000);
        System.out.println("first part done");
        while (System.in.read() >= 0) {
            method(22);
            method(31);
            ProbeController.flushNativeProbe(5000);
            System.out.println("another part done");
        }
        System.out.println("done");
    }

    private static void calls() {
        System.out.println("iiop " + ThreadManager.startIIOPServerRequest("shop.Remote", "order"));
        ThreadManager.startIIOPClientRequest("bank.Remote", "pay");
        ThreadManager.beginNativeEJBRequest("bank.AccountBean", "debit", "(I)V");
        HeapAnalysisRuntime.nativeHeapAllocationStart(22, 77, "shop/Order");
        HeapAnalysisRuntime.nativeHeapAllocationEnd(22, 77, "shop/Order");
        ThreadManager.endNativeEJBRequest(null, null, null);
        ThreadManager.finishIIOPClientRequest();
        System.out.println("iiop " + ThreadManager.finishIIOPServerRequest());
        ThreadManager.startIIOPServerRequest(null, null);
        ThreadManager.finishIIOPServerRequest();
    }

    private static void correlated() {
        ProbeController.setupGps("101");
        System.out.println("token before " + token());
        CommandAgent.startNativeGpsInvokeRequest();
        System.out.println("token first " + token());
        System.out.println("token again " + token());
        CommandAgent.endNativeGpsInvokeRequest();
        CommandAgent.startNativeGpsInvokeRequest();
        System.out.println("token second " + token());
        CommandAgent.endNativeGpsInvokeRequest();
        CommandAgent.startNativeGpsReceiveRequest(0x01020304);
        System.out.println("token received " + token());
        CommandAgent.completeNativeGpsReceiveRequest(0x01020304);
    }

    private static String token() {
        StringBuilder hex = new StringBuilder();
        for (byte b : CommandAgent.getNativeGpsToken()) {
            hex.append(String.format("%02x", b));
        }
        return hex.toString();
    }

    private static void classes() {
        System.out.println("announced " + BcmRuntime.announceClass(2, "shop.Order", new int[] {21, 22},
                new String[] {"total", "<init>"}, new String[] {"()D", "(Ljava/lang/String;)V"}));
        System.out.println("announced again " + BcmRuntime.announceClass(2, "shop.Order", new int[] {21, 22},
                new String[] {"total", "<init>"}, new String[] {"()D", "(Ljava/lang/String;)V"}));
        System.out.println("no methods " + BcmRuntime.announceClass(4, "shop.Empty", new int[0], new String[0],
                new String[0]));
        System.out.println("unequal " + BcmRuntime.announceClass(5, "shop.Bad", new int[2], new String[1],
                new String[2]));
        System.out.println("no name " + BcmRuntime.announceClass(6, null, new int[0], new String[0], new String[0]));
        BcmRuntime.announceClass(3, "shop.Gone", new int[] {31}, new String[] {"old"}, new String[] {"()V"});
        MethodLevelModule.initializeClass(8, "shop.Module", new int[] {81}, new String[] {"run"}, new String[] {"()V"});
        System.out.println("methods " + Arrays.asList(BcmRuntime.appendL3Event(ENTRY, 22),
                BcmRuntime.appendL3Event(ENTRY, 21), BcmRuntime.appendL3Event(EXIT, 21),
                BcmRuntime.appendL3Event(EXIT, 22)));
        method(31);
        method(81);
        method(99);
        System.out.println("withdrawn " + BcmRuntime.withdrawClass(3) + " " + BcmRuntime.withdrawClass(3) + " "
                + BcmRuntime.withdrawClass(12345));
        MethodLevelModule.unloadClass(8, "shop.Module", new int[] {81});
    }

    private static void method(int id) {
        BcmRuntime.appendL3Event(ENTRY, id);
        BcmRuntime.appendL3Event(EXIT, id);
    }
}
