package com.velora.publish;

import static org.junit.Assert.assertEquals;
import static org.junit.Assert.assertFalse;
import static org.junit.Assert.assertTrue;

import org.junit.Test;

/** Which Publish Server is offered when. */
public class PeLookupTest {
    private static final long SECOND = 1_000_000_000L;

    @Test
    public void failedServersAreFollowedByTheNextAndAQuietTimeStartsAnew() {
        pe_lookup.use("127.0.0.1:1001; localhost:1002, 127.0.0.3:1003");
        String offered = "";
        for (long second : new long[] {1, 2, 3, 4, 60, 61}) {
            assertTrue(pe_lookup.choose(second * SECOND));
            offered += pe_lookup.hostName_ + ":" + pe_lookup.port_ + " ";
        }
        assertEquals("127.0.0.1:1001 127.0.0.1:1002 127.0.0.3:1003 127.0.0.1:1001 127.0.0.1:1001 127.0.0.1:1002 ",
                offered);
    }

    @Test
    public void whatIsNoServerIsLeftOut() {
        pe_lookup.use("nonsense :80 host: host:0 host:65536 host:x 127.0.0.1:7");
        assertTrue(pe_lookup.choose(SECOND));
        assertEquals(7, pe_lookup.port_);
        assertTrue(pe_lookup.choose(2 * SECOND));
        assertEquals(7, pe_lookup.port_);
    }

    @Test
    public void anUnknownNameFailsThatAttemptOnly() {
        pe_lookup.use("no.such.host.invalid:80 127.0.0.1:9");
        assertFalse(pe_lookup.choose(SECOND));
        assertTrue(pe_lookup.choose(2 * SECOND));
        assertEquals(9, pe_lookup.port_);
    }

    @Test
    public void anEmptyListNeverSucceeds() {
        pe_lookup.use("rubbish");
        assertEquals(0, pe_lookup.initialize());
    }
}
