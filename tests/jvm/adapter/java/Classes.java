import java.lang.ref.WeakReference;
import java.util.ArrayList;
import java.util.List;
import java.util.Set;
import java.util.stream.Collectors;

/** Class-load requests and events, class unload, the class-load hook. */
final class Classes {
    private static final Set<String> initialised = new java.util.HashSet<>();

    interface Face {
        int NUMBER = 1;
    }

    static class Sample implements Face, Runnable {
        static int count;
        static final String TEXT = "x";
        long wide;
        Object[] many;
        static boolean flag;

        @Override
        public void run() {
            count++;
            flag = true;
        }

        native int none();
    }

    static final class Unlinked {
        static {
            initialised.add("Unlinked");
        }

        int field;
    }

    public static void main(String[] args) {
        Check.run("describesAClass", Classes::describesAClass);
        Check.run("otherKindsOfClasses", Classes::otherKindsOfClasses);
        Check.run("linksWithoutInitialising", Classes::linksWithoutInitialising);
        Check.run("requestIsSynchronous", Classes::requestIsSynchronous);
        Check.run("loadEvents", Classes::loadEvents);
        Check.run("unload", Classes::unload);
        Check.run("unloadWithoutListener", Classes::unloadWithoutListener);
        Check.run("hook", Classes::hook);
        Check.run("hookOnManyThreads", Classes::hookOnManyThreads);
        Check.run("hookSeesFirstDefinitionsOnly", Classes::hookSeesFirstDefinitionsOnly);
        Check.finish();
    }

    private static void describesAClass() {
        TestAgent.Event sample = TestAgent.requestClass(Sample.class);
        Check.equal("Classes$Sample", sample.get("class"));
        Check.equal("Classes.java", sample.get("source"));
        Check.equal(2, sample.number("interfaces"));
        Check.equal(TestAgent.idOf(Sample.class), sample.number("id"));
        Check.equal(Set.of("count:I", "TEXT:Ljava/lang/String;", "flag:Z"), fields(sample, "statics"));
        Check.equal(Set.of("wide:J", "many:[Ljava/lang/Object;"), fields(sample, "instances"));
        String methods = sample.get("methods");
        Check.that(methods.contains("none()I:-1--1,"), methods);
        Check.that(methods.matches(".*run\\(\\)V:(\\d+)-(\\d+),.*"), methods);
        Check.that(methods.contains("<init>()V:"), methods);
        Check.equal("java/lang/String", TestAgent.requestClass(String.class).get("class"));
    }

    private static Set<String> fields(TestAgent.Event event, String key) {
        return Set.of(event.get(key).split(","));
    }

    private static void otherKindsOfClasses() {
        Check.equal("[I", TestAgent.requestClass(int[].class).get("class"));
        Check.equal("[[Ljava/lang/String;", TestAgent.requestClass(String[][].class).get("class"));
        Check.equal("int", TestAgent.requestClass(int.class).get("class"));
        Check.equal("void", TestAgent.requestClass(void.class).get("class"));
        TestAgent.Event array = TestAgent.requestClass(Sample[].class);
        Check.equal("[LClasses$Sample;", array.get("class"));
        Check.equal("", array.get("source"));
        Check.equal("", array.get("methods"));
        TestAgent.Event face = TestAgent.requestClass(Face.class);
        Check.equal("NUMBER:I,", face.get("statics"));
        Check.equal("", face.get("instances"));
        Runnable hidden = () -> { };
        TestAgent.Event lambda = TestAgent.requestClass(hidden.getClass());
        Check.that(lambda.get("class").startsWith("Classes$$Lambda"), lambda.get("class"));
    }

    private static void linksWithoutInitialising() throws Exception {
        Class<?> unlinked = Class.forName("Classes$Unlinked", false, Classes.class.getClassLoader());
        TestAgent.Event event = TestAgent.requestClass(unlinked);
        Check.equal("field:I,", event.get("instances"));
        Check.that(initialised.isEmpty(), "its static initialiser has run");
        Check.equal(0, new Unlinked().field);
        Check.that(!initialised.isEmpty(), "its static initialiser cannot have run");
    }

    private static void requestIsSynchronous() {
        TestAgent.Event event = TestAgent.requestClass(Sample.class);
        Check.equal(1, event.number("requested"));
        Check.equal(TestAgent.tid(), event.number("tid"));
        Check.equal(TestAgent.env(), event.number("env"));
    }

    static final class LoadedLate {
    }

    static final class LoadedLater {
    }

    private static void loadEvents() throws Exception {
        TestAgent.events(TestAgent.CLASS_LOAD);
        Check.equal(0, TestAgent.enable(TestAgent.CLASS_LOAD));
        Class<?> late = new LoadedLate().getClass();
        Check.equal(0, TestAgent.disable(TestAgent.CLASS_LOAD));
        Class<?> later = new LoadedLater().getClass();
        List<TestAgent.Event> loads = TestAgent.events(TestAgent.CLASS_LOAD);
        List<TestAgent.Event> mine = loads.stream().filter(e -> e.get("class").equals("Classes$LoadedLate")).toList();
        Check.equal(1, mine.size());
        Check.equal(0, mine.get(0).number("requested"));
        Check.equal(TestAgent.idOf(late), mine.get(0).number("id"));
        Check.that(loads.stream().noneMatch(e -> e.get("class").equals(later.getName())), "one after disabling");
    }

    /** Defines classes apart from the application's, so that they can be unloaded. */
    private static final class Loader extends ClassLoader {
        Loader() {
            super(Classes.class.getClassLoader());
        }

        Class<?> define(byte[] bytes) {
            return defineClass(null, bytes, 0, bytes.length);
        }
    }

    static byte[] bytesOf(String name) throws Exception {
        try (var stream = Classes.class.getResourceAsStream(name + ".class")) {
            return stream.readAllBytes();
        }
    }

    static final class Apart {
    }

    private static void unload() throws Exception {
        Check.equal(0, TestAgent.enable(TestAgent.CLASS_UNLOAD));
        byte[] bytes = bytesOf("Classes$Apart");
        List<Long> ids = new ArrayList<>();
        for (int i = 0; i < 5; i++) {
            ids.add(TestAgent.idOf(new Loader().define(bytes)));
        }
        long kept = TestAgent.idOf(Sample.class);
        List<Long> gone = new ArrayList<>();
        Check.until("all are reported", () -> {
            TestAgent.runGC();
            TestAgent.events(TestAgent.CLASS_UNLOAD).forEach(e -> {
                Check.that(e.number("env") != 0, "no environment");
                gone.add(e.number("id"));
            });
            return gone.containsAll(ids);
        });
        Check.equal(gone.size(), gone.stream().distinct().count());
        Check.that(!gone.contains(kept), "a living class is reported");
        Check.equal(TestAgent.FAIL, TestAgent.request(TestAgent.CLASS_LOAD, ids.get(0)));
        Check.equal(null, TestAgent.objectOf(ids.get(0)));
        Check.equal(0, TestAgent.disable(TestAgent.CLASS_UNLOAD));
    }

    private static void unloadWithoutListener() throws Exception {
        Class<?> type = new Loader().define(bytesOf("Classes$Apart"));
        long id = TestAgent.idOf(type);
        WeakReference<Class<?>> reference = new WeakReference<>(type);
        type = null;
        Check.until("it is unloaded", () -> {
            TestAgent.runGC();
            return reference.get() == null && TestAgent.request(TestAgent.CLASS_LOAD, id) == TestAgent.FAIL;
        });
        Check.equal(0, TestAgent.events(TestAgent.CLASS_UNLOAD).size());
    }

    static final class Plain {
        @Override
        public String toString() {
            return "no order";
        }
    }

    static final class Grow {
        @Override
        public String toString() {
            return "hook:grow";
        }
    }

    static final class Null {
        @Override
        public String toString() {
            return "hook:null";
        }
    }

    static final class Keep {
        @Override
        public String toString() {
            return "hook:keep";
        }
    }

    static final class Off {
        @Override
        public String toString() {
            return "hook:off";
        }
    }

    static final class Unseen {
        @Override
        public String toString() {
            return "hook:grow";
        }
    }

    private static void hook() {
        Check.equal(0, TestAgent.enable(TestAgent.CLASS_LOAD_HOOK));
        Check.equal("no order", new Plain().toString());
        Check.equal("the agent put a longer text here", new Grow().toString());
        Check.equal("hook:null", new Null().toString());
        Check.equal("hook:keep", new Keep().toString());
        Check.equal(3, TestAgent.editedClasses());
        Check.equal("hook:off", new Off().toString());
        Check.equal(4, TestAgent.editedClasses());
        Check.equal("hook:grow", new Unseen().toString()); // switched off from inside the hook
        Check.equal(4, TestAgent.editedClasses());
    }

    private static void hookOnManyThreads() throws Exception {
        byte[] bytes = bytesOf("Classes$Grow");
        Check.equal(0, TestAgent.enable(TestAgent.CLASS_LOAD_HOOK));
        Set<String> texts = java.util.concurrent.ConcurrentHashMap.newKeySet();
        List<Thread> threads = new ArrayList<>();
        for (int t = 0; t < 4; t++) {
            Thread thread = new Thread(() -> {
                for (int i = 0; i < 50; i++) {
                    try {
                        var constructor = new Loader().define(bytes).getDeclaredConstructor();
                        constructor.setAccessible(true);
                        texts.add(constructor.newInstance().toString());
                    } catch (ReflectiveOperationException e) {
                        texts.add(e.toString());
                    }
                }
            });
            thread.start();
            threads.add(thread);
        }
        for (Thread thread : threads) {
            thread.join();
        }
        Check.equal(0, TestAgent.disable(TestAgent.CLASS_LOAD_HOOK));
        Check.equal(Set.of("the agent put a longer text here"), texts);
        Check.equal(4 + 200, TestAgent.editedClasses());
    }

    private static void hookSeesFirstDefinitionsOnly() throws Exception {
        int edited = TestAgent.editedClasses();
        Check.equal(0, TestAgent.enable(TestAgent.CLASS_LOAD_HOOK));
        Check.equal(0, TestAgent.change(Grow.class, null));
        Check.equal(0, TestAgent.change(Grow.class, bytesOf("Classes$Grow")));
        Check.equal(0, TestAgent.disable(TestAgent.CLASS_LOAD_HOOK));
        Check.equal(edited, TestAgent.editedClasses());
        Check.equal("hook:grow", new Grow().toString());
    }
}
