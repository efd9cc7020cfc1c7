package com.velora.agent;

/** The collector's worker threads: native loops on daemon threads of ours. */
final class Workers {
    /** A native loop that returns only when its worker is stopped. */
    interface NativeLoop {
        void run(int id);
    }

    private Workers() {
    }

    static Thread start(final String role, final int id, final NativeLoop loop) {
        Thread worker = new Thread(() -> {
            try {
                loop.run(id);
            } catch (Throwable t) { // the server runs on without us
                AgentLog.error("Velora " + role + " worker " + id + " ended early", t);
            }
        }, "Velora-" + role + "-" + id);
        worker.setDaemon(true); // a monitoring thread must not hold up the server's exit
        worker.setContextClassLoader(null); // nor keep an application's class loader alive
        worker.start();
        return worker;
    }
}
