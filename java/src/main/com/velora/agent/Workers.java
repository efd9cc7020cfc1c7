package com.velora.agent;

/** Threads of ours: the collector's worker loops and the admin port. */
final class Workers {
    /** A native loop that returns only when its worker is stopped. */
    interface NativeLoop {
        void run(int id);
    }

    /** What a thread does until it returns. */
    interface Body {
        void run() throws Exception;
    }

    private Workers() {
    }

    static Thread start(final String role, final int id, final NativeLoop loop) {
        return startDaemon(role + "-" + id, () -> loop.run(id));
    }

    /** The thread is called "Velora-" and that name. */
    static Thread startDaemon(final String name, final Body body) {
        Thread worker = new Thread(() -> {
            try {
                body.run();
            } catch (Throwable t) { // the server runs on without us
                AgentLog.error("The thread Velora-" + name + " ended early", t);
            }
        }, "Velora-" + name);
        worker.setDaemon(true); // a monitoring thread must not hold up the server's exit
        worker.setContextClassLoader(null); // nor keep an application's class loader alive
        worker.start();
        return worker;
    }
}
