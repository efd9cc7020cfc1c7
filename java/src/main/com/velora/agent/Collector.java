package com.velora.agent;

import com.velora.bcm.bootstrap.BcmBootstrap;
import com.velora.probe.ProbeController;
import com.velora.probe.ProbeSystem;
import com.velora.probe.ProbeUtils;
import com.velora.probe.event.EventAgent;
import com.velora.probe.event.NetworkAgent;
import com.velora.publish.pe_lookup;

/** Starts the collector in its fixed order: singletons, managers, admin port, one daemon thread per worker loop. */
final class Collector {
    private Collector() {
    }

    /** False when the collector cannot work in this VM; its own log says why. */
    static boolean start(AgentOptions options) {
        pe_lookup.use(options.publishServers());
        ProbeSystem.initialize();
        if (!ProbeUtils.customServiceStart()) {
            return false;
        }
        BcmBootstrap.bindRuntimeNatives();
        ProbeController.startNativeProbe();
        if (options.adminPort() != AgentOptions.NO_PORT) { // before the first records that tell of it
            AdminPort.open(options.adminPort());
        }
        for (int id = 0; id < NetworkAgent.getNetAgentCount(); id++) {
            Workers.startDaemon("network-" + id, networkLoop(id));
        }
        for (int id = 0; id < EventAgent.getEvtAgentCount(); id++) {
            Workers.startDaemon("event-" + id, eventLoop(id));
        }
        return true;
    }

    private static Workers.Body networkLoop(final int id) {
        return new Workers.Body() {
            @Override
            public void run() {
                new NetworkAgent().startThread(id);
            }
        };
    }

    private static Workers.Body eventLoop(final int id) {
        return new Workers.Body() {
            @Override
            public void run() {
                new EventAgent().startThread(id);
            }
        };
    }
}
