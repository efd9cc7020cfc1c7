package com.velora.publish;

import static org.junit.Assert.assertEquals;
import static org.junit.Assert.assertFalse;
import static org.junit.Assert.assertTrue;

import org.junit.Test;

/** Which Publish Server is offered when. */
public class PeLookupTest {
    private static final long SECOND = 1_000_000_000L;

    @Test
    public void failedServersAreFollowedByTheNextAndAQuietTimeStartsAnewButNotWithTheServerThatWasLeft() {
        pe_lookup.use("127.0.0.1:1; localhost:2, 127.0.0.3:3");
        String offered = "";
        for (long second : new long[] {1, 2, 3, 4, 5, 60, 61, 120, 180, 181}) {
            assertTrue(pe_lookup.choose(second * SECOND));
            offered += pe_lookup.port_ + " ";
        }
        assertEquals("1 2 3 1 2 1 2 1 2 3 ", offered);
        assertEquals("127.0.0.3", pe_lookup.hostName_);
    }

    @Test
    public void anAddressOfSixteenBytesStandsInBrackets() {
        pe_lookup.use("::1:1 [::1 []:3 [::1]:7");
        assertTrue(pe_lookup.choose(SECOND));
        assertEquals("0:0:0:0:0:0:0:1", pe_lookup.hostName_);
        assertEquals(7, pe_lookup.port_);
        assertTrue(pe_lookup.choose(2 * SECOND));
        assertEquals(7, pe_lookup.port_);
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
