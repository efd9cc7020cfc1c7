package com.velora.probe.servlet;

import static org.junit.Assert.assertFalse;
import static org.junit.Assert.assertTrue;

import org.junit.Test;

/** What becomes of a probe that fails. */
public class ServletProbeTest {
    @Test
    public void aMissingNativeSwitchesItOffAndNothingElseDoes() {
        ServletProbe.switchOn();
        ServletProbe.failed(new IllegalStateException("of one request"));
        assertTrue(ServletProbe.on);
        ServletProbe.finish(true); // there are no natives here
        assertFalse(ServletProbe.on);
    }
}
