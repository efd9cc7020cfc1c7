package com.velora.agent;

import static org.junit.Assert.assertEquals;
import static org.junit.Assert.assertFalse;
import static org.junit.Assert.assertTrue;

import org.junit.After;
import org.junit.Test;

/** The agent's arguments, the system properties and their order of precedence. */
public class AgentOptionsTest {
    @After
    public void clear() {
        System.clearProperty("velora.ps");
        System.clearProperty("velora.probe");
        System.clearProperty("velora.admin");
    }

    @Test
    public void argumentsComeBeforePropertiesBeforeDefaults() {
        assertEquals("127.0.0.1:9520", AgentOptions.parse(null).publishServers());
        System.setProperty("velora.ps", "a:1,b:2");
        assertEquals("a:1,b:2", AgentOptions.parse("").publishServers());
        assertEquals("c:3;d:4", AgentOptions.parse("home=/x, ps=c:3;d:4 ,probe=on").publishServers());
        assertEquals("127.0.0.1:9520", AgentOptions.parse("ps=").publishServers());
    }

    @Test
    public void thereIsNoAdminPortUnlessItIsNamed() {
        assertEquals(-1, AgentOptions.parse("ps=a:1").adminPort());
        assertEquals(0, AgentOptions.parse("admin=0").adminPort());
        System.setProperty("velora.admin", " 9521 ");
        assertEquals(9521, AgentOptions.parse("").adminPort());
        assertEquals(65535, AgentOptions.parse("admin=65535").adminPort());
        for (String bad : new String[] {"65536", "-1", "9521x", "on", ""}) {
            assertEquals(bad, -1, AgentOptions.parse("admin=" + bad).adminPort());
        }
    }

    @Test
    public void theProbeIsOffOnlyWhenSoNamed() {
        assertTrue(AgentOptions.parse("probe=on").enabled());
        assertFalse(AgentOptions.parse("probe=OFF").enabled());
        assertTrue(AgentOptions.parse("probe=perhaps").enabled());
        System.setProperty("velora.probe", "off");
        assertFalse(AgentOptions.parse("=,,x").enabled());
    }
}
