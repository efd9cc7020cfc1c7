/** A heap dump for which there is no memory. */
final class Refusal {
    private static volatile Object sink;

    /** Large arrays take much of the dump and little of the VM's own memory, so that the dump is what fails. */
    public static void main(String[] args) {
        byte[][] large = new byte[6][];
        for (int i = 0; i < large.length; i++) {
            large[i] = new byte[16 << 20];
        }
        Check.run("refusedWithoutMemory", () -> {
            Check.that(TestAgent.dumpUnread() > 96 << 20, "not in the dump");
            TestAgent.limitMemory(48 << 20);
            long refused;
            try {
                refused = TestAgent.dumpUnread();
            } finally {
                TestAgent.limitMemory(-1);
            }
            Check.equal(-1, refused);
            Check.that(TestAgent.dumpUnread() > 96 << 20, "not possible any more");
        });
        Check.run("refusedBeforeTheWalk", () -> {
            long whole = TestAgent.dumpUnread();
            TestAgent.pretendAvailable(2 * whole); // enough for this dump of few objects, not for one of small objects
            Check.equal(-1, TestAgent.dumpUnread());
        });
        Check.run("garbageDoesNotCount", () -> {
            TestAgent.runGC();
            long live = used();
            TestAgent.pretendAvailable((live + (20 << 20)) * 6); // of which three quarters may be taken
            while (used() < live + (40 << 20)) {
                sink = new byte[1 << 20];
            }
            Check.that(TestAgent.dumpUnread() > 96 << 20, "refused for garbage");
            Check.that(large[5].length > 0, "held until here");
        });
        Check.finish();
    }

    private static long used() {
        return Runtime.getRuntime().totalMemory() - Runtime.getRuntime().freeMemory();
    }
}
