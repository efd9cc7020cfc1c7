package com.velora.agent;

/**
 * Threads of ours: the collector's worker loops and the admin port. What runs before the application's main method has
 * no lambdas: the first one of a VM loads some hundred classes.
 */
final class Workers {
    /** What a thread does until it returns. */
    interface Body {
        void run() throws Exception;
    }

    private Workers() {
    }

    /** The thread is called "Velora-" and that name. */
    static Thread startDaemon(final String name, final Body body) {
        Thread worker = daemon(name, body);
        worker.start();
        return worker;
    }

    static Thread daemon(final String name, final Body body) {
        Thread worker = new Thread("Velora-" + name) {
            @Override
            public void run() {
                try {
                    body.run();
                } catch (Throwable t) { // the server runs on without us
                    AgentLog.error("The thread " + getName() + " ended early", t);
                }
            }
        };
        worker.setDaemon(true); // a monitoring thread must not hold up the server's exit
        worker.setContextClassLoader(null); // nor keep an application's class loader alive
        return worker;
    }
}
