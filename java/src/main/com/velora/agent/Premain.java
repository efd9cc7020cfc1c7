package com.velora.agent;

import com.velora.instrument.ServletTransformer;
import com.velora.probe.servlet.RequestNames;
import com.velora.probe.servlet.ServletProbe;

import java.lang.instrument.Instrumentation;

/**
 * Where the Java side begins, whichever way the agent came in: started by the native agent through the VM's
 * own instrument library, or by -javaagent. It runs before the application's main method and lets nothing out:
 * whatever fails here, the application starts.
 */
public final class Premain {
    private static boolean started; // guarded by the class's lock

    private Premain() {
    }

    public static void premain(String arguments, Instrumentation instrumentation) {
        try {
            start(arguments, instrumentation);
        } catch (Throwable t) { // LinkageError too: the server runs on without us
            tell(t);
        }
    }

    /** What leaves premain ends the VM, so a jar that lacks even the log's class must not make a second failure. */
    private static void tell(Throwable failure) {
        String text = "The Velora agent could not start; the application runs unmonitored";
        try {
            AgentLog.error(text, failure);
        } catch (Throwable noLog) {
            System.err.println("Velora: " + text + ": " + failure);
        }
    }

    private static synchronized void start(String arguments, Instrumentation instrumentation) {
        if (started) { // -javaagent may stand on the command line more than once
            return;
        }
        started = true;
        AgentOptions options = AgentOptions.parse(arguments);
        if (!options.enabled()) {
            return;
        }
        NativeLibrary.ensureLoaded();
        options.reportProblems();
        RequestNames.keepSessionIds = options.sessionIdsKept();
        ServletTransformer.install(instrumentation);
        if (Collector.start(options)) {
            ServletProbe.switchOn();
        }
    }
}
