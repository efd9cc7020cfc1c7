package com.velora.bcm.bootstrap;

import com.velora.agent.AgentLog;
import com.velora.probe.heap.HeapAnalysisRuntime;
import com.velora.probe.l3trace.BcmRuntime;
import com.velora.probe.lock.LockAnalysisRuntime;

import java.util.Arrays;

/** What class-defining code of rewritten loaders calls before it defines a class. */
public final class BcmBootstrap {
    /** Looks at the bytes of a class that is about to be defined. */
    public interface Instrumenter {
        /** The bytes to define instead, or null to leave the class as it is. */
        byte[] instrument(ClassLoader loader, String className, byte[] classFile);
    }

    private static volatile Instrumenter instrumenter;

    private BcmBootstrap() {
    }

    public static void setInstrumenter(Instrumenter newInstrumenter) {
        instrumenter = newInstrumenter;
    }

    /**
     * Called by the wrapper methods that the native injector adds. The result stands for the whole class file; null
     * tells the wrapper to define the range that it was given.
     */
    public static byte[] instrumentClassStatic(ClassLoader loader, String className, byte[] bytes, int offset,
            int length) {
        Instrumenter current = instrumenter;
        if (current == null || bytes == null || offset < 0 || length < 0 || length > bytes.length - offset) {
            return null;
        }
        try {
            return current.instrument(loader, className, Arrays.copyOfRange(bytes, offset, offset + length));
        } catch (Throwable t) { // the application's class is defined as it came
            AgentLog.error("The instrumenter failed on class " + className, t);
            return null;
        }
    }

    /** Binds the natives of the runtime classes, which live in the boot loader. */
    public static void bindRuntimeNatives() {
        for (Class<?> runtime : new Class<?>[] {BcmRuntime.class, HeapAnalysisRuntime.class, LockAnalysisRuntime.class}) {
            try {
                BcmBootstrapDefineHelper.defineNativeMethodsForClassNative(runtime, runtime.getName());
            } catch (Throwable t) { // the VM's own look-up by name still finds them
                AgentLog.error("The natives of " + runtime.getName() + " could not be bound", t);
            }
        }
    }
}
