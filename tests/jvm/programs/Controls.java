import com.velora.command.CommandAgent;
import com.velora.command.MethodLevelModule;
import com.velora.network.NetworkAgent;
import com.velora.probe.ProbeController;
import com.velora.probe.ProbeSystem;
import com.velora.probe.ProbeUtils;
import com.velora.probe.ThreadManager;
import com.velora.probe.event.EventAgent;
import com.velora.probe.l3trace.BcmRuntime;

import java.util.Arrays;

/** Turns every control that Java has of the collector, in a running VM; prints what they answer. */
public final class Controls {
    static void print(String key, Object value) {
        System.out.println(key + "=" + value);
    }

    static boolean await(boolean enabled) throws Exception {
        for (int i = 0; i < 1000 && ProbeController.isNativeProbeEnabled() != enabled; i++) {
            Thread.sleep(20);
        }
        return ProbeController.isNativeProbeEnabled() == enabled;
    }

    static void request(String name) {
        ThreadManager.startNativeHttpRequest(null, name, "controls", "/" + name, "me");
        ThreadManager.startNativeHttpRequest(null, name + ".inner", "controls", "/" + name, "me");
        ThreadManager.finishNativeHttpRequest(null, null, null);
        ThreadManager.finishNativeHttpRequest(null, null, null);
    }

    static void levels() {
        for (int level : new int[] {3, 3, 1, 9, 0, -1, 1002, 2}) {
            boolean changed = ProbeController.setModLevel(level);
            print("level." + level, changed + " " + ProbeController.getMonitoringLevel());
            request("level" + level);
        }
        print("restart", ProbeController.restartOnToFromL1());
    }

    static void lists() {
        ProbeController.setIncludeExcludeList(new String[] {"com/acme/*", null, ""}, new String[] {"java/*"});
        ProbeController.setIncludeExcludeList(null, new String[0]);
        ProbeController.setIncludeExcludeList(null, null);
        request("lists");
    }

    static void rates() {
        print("rates", Arrays.toString(ProbeSystem.getSamplingRates()));
        ProbeSystem.setSamplingRates(new int[] {10, 20, 30, 40}, false);
        print("rates.set", Arrays.toString(ProbeSystem.getSamplingRates()));
        ProbeSystem.setSamplingRates(new int[] {1}, true);
        ProbeSystem.setSamplingRates(null, true);
        print("rates.kept", Arrays.toString(ProbeSystem.getSamplingRates()));
    }

    static void facts() {
        print("jvmpi", ProbeController.isJvmpiEnabled() + " " + ProbeController.initializeJVMPI());
        print("cpus", ProbeSystem.getCpuCount() == Runtime.getRuntime().availableProcessors());
        print("pid", ProbeSystem.getProcessId() == ProcessHandle.current().pid());
        print("names", ProbeSystem.getNodeName() + " " + ProbeSystem.getAppServerName() + " " + ProbeSystem.getProfileName());
        print("mod", ProbeSystem.getModFileName().equals(ProbeSystem.getHome() + "/etc/am.mod"));
        NetworkAgent.initCppSide();
    }

    static void methods() {
        int[] ids = {7001, 7002};
        print("declare", BcmRuntime.announceClass(70, "acme/Till", ids, new String[] {"sell", "close"},
                new String[] {"()V", "(I)I"}));
        print("method", BcmRuntime.appendL3Event((byte) 0, 7001) + " " + BcmRuntime.appendL3Event((byte) 1, 7001));
        print("withdraw", BcmRuntime.withdrawClass(70));
        MethodLevelModule.initializeClass(71, "acme/Shop", ids, new String[] {"a", "b"}, new String[] {"()V", "()V"});
        MethodLevelModule.unloadClass(71, "acme/Shop", ids);
    }

    static void tokens() {
        ProbeController.setupGps("101");
        CommandAgent.startNativeGpsInvokeRequest();
        byte[] token = CommandAgent.getNativeGpsToken();
        print("token", token.length + " " + ((token[0] & 0xE0) >> 5));
        CommandAgent.endNativeGpsInvokeRequest();
        CommandAgent.startNativeGpsReceiveRequest(4711);
        CommandAgent.completeNativeGpsReceiveRequest(4711);
    }

    static void workers() {
        for (int id = 0; id < com.velora.probe.event.NetworkAgent.getNetAgentCount(); id++) {
            int agent = id;
            daemon(() -> new com.velora.probe.event.NetworkAgent().startThread(agent));
        }
        for (int id = 0; id < EventAgent.getEvtAgentCount(); id++) {
            int agent = id;
            daemon(() -> new EventAgent().startThread(agent));
        }
    }

    static void daemon(Runnable body) {
        Thread thread = new Thread(body);
        thread.setDaemon(true);
        thread.start();
    }

    static void restart() throws Exception {
        ProbeController.stopNativeProbe();
        print("stopped", await(false) + " " + ProbeController.setModLevel(3));
        request("stopped");
        ProbeController.startNativeProbe();
        workers();
        print("started", await(true));
        request("started");
        print("started.id", ThreadManager.getEnv() != 0);
    }

    public static void main(String[] args) throws Exception {
        print("enabled", await(true));
        levels();
        lists();
        rates();
        facts();
        methods();
        tokens();
        Thread.sleep(1000); // what is queued leaves
        new EventAgent().stopThread(0); // one worker alone, and on with it
        new com.velora.probe.event.NetworkAgent().stopThread(0);
        workers();
        request("workers");
        restart();
        Thread.sleep(1000);
        ProbeController.stopNativeProbe();
        ProbeUtils.customServiceShutDown();
        print("service", ProbeUtils.customServiceStart());
        ProbeController.startNativeProbe();
        workers();
        print("again", await(true));
        request("again");
        print("done", "yes");
    }
}
