package com.velora.bcm.bootstrap;

import static org.junit.Assert.assertArrayEquals;
import static org.junit.Assert.assertNull;

import org.junit.After;
import org.junit.Test;

/** What rewritten class loaders get back for the bytes that they are about to define. */
public class BcmBootstrapTest {
    private static final byte[] BYTES = {1, 2, 3, 4, 5};

    @After
    public void noInstrumenter() {
        BcmBootstrap.setInstrumenter(null);
    }

    @Test
    public void theInstrumenterSeesTheRangeAndItsResultIsUsed() {
        BcmBootstrap.setInstrumenter((loader, name, file) -> new byte[] {file[0], (byte) file.length});
        assertArrayEquals(new byte[] {2, 3}, BcmBootstrap.instrumentClassStatic(null, "A", BYTES, 1, 3));
    }

    @Test
    public void withoutInstrumenterOrWithBadArgumentsTheClassIsDefinedAsItCame() {
        assertNull(BcmBootstrap.instrumentClassStatic(null, "A", BYTES, 0, 5));
        BcmBootstrap.setInstrumenter((loader, name, file) -> file);
        assertNull(BcmBootstrap.instrumentClassStatic(null, "A", null, 0, 5));
        assertNull(BcmBootstrap.instrumentClassStatic(null, "A", BYTES, -1, 2));
        assertNull(BcmBootstrap.instrumentClassStatic(null, "A", BYTES, 3, 3));
        assertNull(BcmBootstrap.instrumentClassStatic(null, "A", BYTES, 1, Integer.MAX_VALUE));
    }

    @Test
    public void aFailingInstrumenterNeverReachesTheLoader() {
        BcmBootstrap.setInstrumenter((loader, name, file) -> {
            throw new StackOverflowError();
        });
        assertNull(BcmBootstrap.instrumentClassStatic(null, "A", BYTES, 0, 5));
    }
}
