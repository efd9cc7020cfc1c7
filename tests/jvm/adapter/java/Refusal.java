/** A heap dump for which there is no memory. */
final class Refusal {
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
            Check.that(large[5].length > 0, "held until here");
        });
        Check.finish();
    }
}
