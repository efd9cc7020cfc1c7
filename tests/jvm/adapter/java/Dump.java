import java.lang.management.ManagementFactory;
import java.util.ArrayList;
import java.util.HashMap;
import java.util.List;
import java.util.Map;
import javax.management.ObjectName;

/** The heap dump: an object graph that is known field by field, found again in the records. */
final class Dump {
    interface Lonely {
        String TEXT = new String("an interface's constant");
        int NUMBER = Integer.parseInt("12345");
    }

    interface Both extends Lonely {
        long OTHER = Long.parseLong("-7");
    }

    static class Base implements Lonely {
        int number = 0x01020304;
        static short shared = -2;
        boolean truth = true;
        Object self = this;
        static Object nothing;
    }

    static class Heir extends Base implements Both, Runnable {
        byte small = -128;
        Object reference = new int[] {1, -2, Integer.MIN_VALUE};
        double exact = Math.PI;
        static Object kept = new Object[] {"one", null, new Object[0]};
        char letter = '\u20ac';
        short pair = -300;
        long wide = 0x0102030405060708L;
        float single = -1.5f;
        Object none;
        Class<?> type = Heir.class;
        Class<?> primitive = int.class;
        int number = 99; // hides the one above
        static double ratio = 0.25;

        @Override
        public void run() {
        }
    }

    static final class Node {
        final Node next;
        final int value;

        Node(Node next, int value) {
            this.next = next;
            this.value = value;
        }
    }

    private static final int NODES = 5000;
    private static Node list;
    private static Object[] arrays;
    private static final Heir HEIR = new Heir();

    public static void main(String[] args) {
        for (int i = 0; i < NODES; i++) {
            list = new Node(list, i);
        }
        arrays = new Object[] {new boolean[] {true, false}, new byte[] {-1, 2}, new char[] {'\uffff', 'a'},
            new short[] {-1, 2}, new int[] {-1, 2}, new long[] {-1, 2}, new float[] {-1, 2}, new double[] {-1, 2},
            new long[0][3], new String[][] {{"x"}}};
        Check.that(Lonely.NUMBER + Both.OTHER == 12338, "initialised"); // a class that implements them does not do it
        TestAgent.idOf(HEIR); // an object keeps the id that it was given before
        TestAgent.idOf(Thread.currentThread());
        Check.run("level2", () -> {
            Check.equal(0, TestAgent.dump(2));
            sound(2);
            values();
            primitiveArrays();
            linkedList();
            statics();
            classes();
            roots();
            agreesWithHistogram();
        });
        Check.run("idsEndWithTheDump", () -> {
            String first = TestAgent.dumpStatic(TestAgent.idOf(Dump.class), "list");
            Check.equal(0, TestAgent.dump(2));
            sound(2);
            String second = TestAgent.dumpStatic(TestAgent.idOf(Dump.class), "list");
            Check.that(!first.equals(second), "an id of the old dump names an object of the new one");
            Check.equal(null, TestAgent.objectOf(Long.parseLong(second)));
        });
        Check.run("level1", Dump::levelOne);
        Check.run("level0", Dump::levelZero);
        Check.run("levelsThatAreNone", () -> {
            Check.equal(TestAgent.FAIL, TestAgent.dump(3));
            Check.equal(TestAgent.FAIL, TestAgent.dump(-1));
        });
        Check.run("whileClassesAreLoaded", Dump::whileClassesAreLoaded);
        Check.finish();
    }

    /** The dump was read to its end, and every id in it means something. */
    private static void sound(int level) {
        String summary = TestAgent.dumpSummary();
        Check.that(summary.startsWith("level=" + level + "|"), summary);
        Check.that(summary.endsWith("|ended=1|troubles="), summary);
    }

    private static String field(Object object, Class<?> type, String name) {
        return TestAgent.dumpField(TestAgent.idOf(object), TestAgent.idOf(type), name);
    }

    private static void values() {
        Check.equal("" + 0x01020304, field(HEIR, Base.class, "number"));
        Check.equal("99", field(HEIR, Heir.class, "number"));
        Check.equal("1", field(HEIR, Base.class, "truth"));
        Check.equal("-128", field(HEIR, Heir.class, "small"));
        Check.equal("" + (int) '\u20ac', field(HEIR, Heir.class, "letter"));
        Check.equal("-300", field(HEIR, Heir.class, "pair"));
        Check.equal("" + 0x0102030405060708L, field(HEIR, Heir.class, "wide"));
        Check.equal("" + Float.floatToRawIntBits(-1.5f), field(HEIR, Heir.class, "single"));
        Check.equal("" + Double.doubleToRawLongBits(Math.PI), field(HEIR, Heir.class, "exact"));
        Check.equal("0", field(HEIR, Heir.class, "none"));
        Check.equal("" + TestAgent.idOf(HEIR), field(HEIR, Base.class, "self"));
        Check.equal("" + TestAgent.idOf(Heir.class), field(HEIR, Heir.class, "type"));
        Check.equal("" + TestAgent.idOf(int.class), field(HEIR, Heir.class, "primitive"));
        Check.equal("instance " + TestAgent.idOf(Heir.class), TestAgent.dumpKind(TestAgent.idOf(HEIR)));
        long numbers = Long.parseLong(field(HEIR, Heir.class, "reference"));
        Check.equal("primitives 3 10", TestAgent.dumpKind(numbers));
        Check.equal("" + Integer.MIN_VALUE, TestAgent.dumpElement(numbers, 2));
    }

    private static void primitiveArrays() {
        long all = Long.parseLong(TestAgent.dumpStatic(TestAgent.idOf(Dump.class), "arrays"));
        Check.equal("objects 10 " + TestAgent.idOf(Object.class), TestAgent.dumpKind(all));
        String[] first = {"1", "-1", "65535", "-1", "-1", "-1", "" + Float.floatToRawIntBits(-1),
            "" + Double.doubleToRawLongBits(-1)};
        String[] second = {"0", "2", "97", "2", "2", "2", "" + Float.floatToRawIntBits(2),
            "" + Double.doubleToRawLongBits(2)};
        int[] types = {4, 8, 5, 9, 10, 11, 6, 7};
        for (int i = 0; i < types.length; i++) {
            long array = Long.parseLong(TestAgent.dumpElement(all, i));
            Check.equal("primitives 2 " + types[i], TestAgent.dumpKind(array));
            Check.equal(first[i], TestAgent.dumpElement(array, 0));
            Check.equal(second[i], TestAgent.dumpElement(array, 1));
        }
        Check.equal("objects 0 " + TestAgent.idOf(long[].class),
                TestAgent.dumpKind(Long.parseLong(TestAgent.dumpElement(all, 8))));
        Check.equal("objects 1 " + TestAgent.idOf(String[].class),
                TestAgent.dumpKind(Long.parseLong(TestAgent.dumpElement(all, 9))));
    }

    private static void linkedList() {
        long type = TestAgent.idOf(Node.class);
        long at = Long.parseLong(TestAgent.dumpStatic(TestAgent.idOf(Dump.class), "list"));
        for (int i = NODES - 1; i >= 0; i--) {
            Check.equal("" + i, TestAgent.dumpField(at, type, "value"));
            at = Long.parseLong(TestAgent.dumpField(at, type, "next"));
        }
        Check.equal(0, at);
    }

    private static void statics() {
        long base = TestAgent.idOf(Base.class);
        long heir = TestAgent.idOf(Heir.class);
        Check.equal("-2", TestAgent.dumpStatic(base, "shared"));
        Check.equal("0", TestAgent.dumpStatic(base, "nothing"));
        Check.equal("" + Double.doubleToRawLongBits(0.25), TestAgent.dumpStatic(heir, "ratio"));
        long kept = Long.parseLong(TestAgent.dumpStatic(heir, "kept"));
        Check.equal("objects 3 " + TestAgent.idOf(Object.class), TestAgent.dumpKind(kept));
        Check.equal("0", TestAgent.dumpElement(kept, 1));
        Check.equal("12345", TestAgent.dumpStatic(TestAgent.idOf(Lonely.class), "NUMBER"));
        Check.equal("-7", TestAgent.dumpStatic(TestAgent.idOf(Both.class), "OTHER"));
        long text = Long.parseLong(TestAgent.dumpStatic(TestAgent.idOf(Lonely.class), "TEXT"));
        Check.equal("instance " + TestAgent.idOf(String.class), TestAgent.dumpKind(text));
    }

    private static void classes() {
        long lonely = TestAgent.idOf(Lonely.class);
        Check.equal("class " + TestAgent.idOf(Base.class) + " " + TestAgent.idOf(Both.class) + " "
                + TestAgent.idOf(Runnable.class), TestAgent.dumpKind(TestAgent.idOf(Heir.class)));
        Check.equal("class " + TestAgent.idOf(Object.class) + " " + lonely,
                TestAgent.dumpKind(TestAgent.idOf(Base.class)));
        Check.equal("class 0", TestAgent.dumpKind(TestAgent.idOf(Object.class)));
        Check.equal("class 0", TestAgent.dumpKind(lonely));
        Check.equal("absent", TestAgent.dumpKind(TestAgent.idOf(int[].class)));
        Check.equal("absent", TestAgent.dumpKind(TestAgent.idOf(int.class)));
    }

    /** The main thread is a root of its own, and its frames hold what this test's locals hold. */
    private static void roots() {
        long main = TestAgent.idOf(Thread.currentThread());
        boolean block = false;
        for (String root : TestAgent.dumpRoots(main)) {
            block |= root.equals("6 " + TestAgent.env() + " -1");
        }
        Check.that(block, "the main thread is no thread-block root: " + List.of(TestAgent.dumpRoots(main)));
        boolean sticky = false;
        for (String root : TestAgent.dumpRoots(TestAgent.idOf(Object.class))) {
            sticky |= root.startsWith("5 ");
        }
        Check.that(sticky, "java.lang.Object is no sticky class");
    }

    /** Instances per class as the VM itself counts them, after a collection. */
    private static Map<String, Long> histogram() throws Exception {
        String text = (String) ManagementFactory.getPlatformMBeanServer().invoke(
                new ObjectName("com.sun.management:type=DiagnosticCommand"), "gcClassHistogram",
                new Object[] {new String[0]}, new String[] {String[].class.getName()});
        Map<String, Long> counts = new HashMap<>();
        for (String line : text.split("\n")) {
            String[] words = line.trim().split("\\s+");
            if (words.length >= 4 && words[0].endsWith(":")) {
                counts.merge(words[3].replace('.', '/'), Long.parseLong(words[1]), Long::sum);
            }
        }
        return counts;
    }

    private static void agreesWithHistogram() throws Exception {
        histogram(); // loads what it needs itself
        Map<String, Long> before = histogram();
        Check.equal(0, TestAgent.dump(2));
        Map<String, Long> after = histogram();
        Map<String, Long> dumped = new HashMap<>();
        for (String line : TestAgent.dumpCounts()) {
            int blank = line.lastIndexOf(' ');
            dumped.put(line.substring(0, blank), Long.parseLong(line.substring(blank + 1)));
        }
        List<String> wrong = new ArrayList<>();
        for (Map.Entry<String, Long> entry : before.entrySet()) {
            String name = entry.getKey();
            if (name.startsWith("[") || name.equals("java/lang/Class") || name.contains("$$") || name.contains("+0x")
                    || name.startsWith("java/lang/invoke/") || name.startsWith("java/lang/StringConcatHelper")) {
                continue; // what hangs on the call sites of application classes only is not followed by the VM
            }
            long low = Math.min(entry.getValue(), after.getOrDefault(name, 0L));
            long high = Math.max(entry.getValue(), after.getOrDefault(name, 0L));
            long got = dumped.getOrDefault(name, 0L);
            long slack = 5 + high / 20; // other threads go on, and this method allocates
            if (got < low - slack || got > high + slack) {
                wrong.add(name + " " + low + ".." + high + " but " + got);
            }
        }
        Check.that(wrong.isEmpty(), wrong.size() + " counts differ: " + wrong);
        Check.that(dumped.get("Dump$Node") == NODES, "nodes " + dumped.get("Dump$Node"));
    }

    private static void levelOne() {
        Check.equal(0, TestAgent.dump(1));
        sound(1);
        Check.equal("" + TestAgent.idOf(HEIR), field(HEIR, Base.class, "self"));
        Check.equal("" + TestAgent.idOf(Heir.class), field(HEIR, Heir.class, "type"));
        Check.equal("primitives 3 10", TestAgent.dumpKind(Long.parseLong(field(HEIR, Heir.class, "reference"))));
    }

    private static void levelZero() {
        Check.equal(0, TestAgent.dump(0));
        sound(0);
        Check.equal("level 0, type 0", TestAgent.dumpKind(TestAgent.idOf(HEIR)));
        Check.equal("level 0, type 0", TestAgent.dumpKind(TestAgent.idOf(Heir.class)));
    }

    /** Defines one small class over and over, each in a loader of its own. */
    static final class Loader extends ClassLoader {
        private final byte[] bytes;

        Loader(byte[] bytes) {
            super(null);
            this.bytes = bytes;
        }

        Object make() throws Exception {
            var constructor = defineClass(null, bytes, 0, bytes.length).getDeclaredConstructor();
            constructor.setAccessible(true);
            return constructor.newInstance();
        }
    }

    static final class Fresh {
        static Object seen = new int[3];
        Object held = new Object();
        long number = 5;

        Fresh() {
        }
    }

    private static void whileClassesAreLoaded() throws Exception {
        byte[] bytes;
        try (var stream = Dump.class.getResourceAsStream("Dump$Fresh.class")) {
            bytes = stream.readAllBytes();
        }
        boolean[] stop = {false};
        Throwable[] failure = {null};
        List<Object> kept = new ArrayList<>();
        Thread loading = new Thread(() -> {
            try {
                for (int n = 0; n < 500 && !stop[0]; n++) {
                    var make = Loader.class.getDeclaredMethod("make");
                    make.setAccessible(true);
                    Object made = make.invoke(new Loader(bytes));
                    synchronized (stop) {
                        kept.add(made);
                        if (kept.size() > 100) {
                            kept.clear();
                        }
                    }
                }
            } catch (Throwable t) {
                failure[0] = t;
            }
        });
        loading.start();
        for (int i = 0; i < 3; i++) {
            Check.equal(0, TestAgent.dump(2));
            sound(2);
        }
        stop[0] = true;
        loading.join();
        Check.equal(null, failure[0]);
    }
}
