import java.util.ArrayList;
import java.util.HashMap;
import java.util.List;
import java.util.Map;

/** The native test agent, seen from Java. Threads are named by their JNIEnv*, objects by their ids, both as longs. */
final class TestAgent {
    static final int SUCCESS = 0;
    static final int NOT_AVAILABLE = 1;
    static final int FAIL = -1;

    static final int THREAD_START = 33;
    static final int THREAD_END = 34;
    static final int CLASS_LOAD_HOOK = 35;
    static final int HEAP_DUMP = 37;
    static final int CLASS_LOAD = 42;
    static final int CLASS_UNLOAD = 43;
    static final int INIT_DONE = 46;
    static final int GC_START = 60;
    static final int GC_FINISH = 61;

    static {
        String late = System.getProperty("agent.library"); // set when no flag has loaded the agent
        if (late != null) {
            System.load(late);
        }
    }

    private TestAgent() {
    }

    static native int enable(int type);

    static native int disable(int type);

    static native int request(int type, long argument);

    static native void listen(boolean on);

    private static native String[] takeEvents(int type, int orType);

    static native long env();

    static native long tid();

    static native int status(long env);

    private static native String[] trace(long env, int depth);

    static native void traceOften(long env, long classId, int times);

    static native long threadObject(long env);

    static native long idOf(Object object);

    static native Object objectOf(long id);

    static native long methodId(java.lang.reflect.Executable method);

    static native long methodClass(long method);

    static native long askWhileThrowing(long method, Throwable thrown);

    static native long cpuTime();

    static native void runGC();

    static native void suspend(long env);

    static native void resume(long env);

    static native boolean hasRun(long env);

    static native String suspendTwo(long one, long two, boolean suspend);

    static native int createThread();

    static native void setLocal(long env, long value);

    static native long getLocal(long env);

    static native long monitorCreate();

    static native void monitorEnter(long monitor);

    static native void monitorExit(long monitor);

    static native void monitorWait(long monitor, long ms);

    static native void monitorNotifyAll(long monitor);

    static native void monitorDestroy(long monitor);

    static native void holdAcrossJni(long monitor, int bytes);

    static native void profilerExit(int code);

    static native int editedClasses();

    static native int hookedClasses();

    static native int change(Class<?> type, byte[] bytes);

    static native int dump(int level);

    static native long dumpUnread();

    static native void limitMemory(long more);

    static native void pretendAvailable(long bytes);

    static native String dumpSummary();

    static native String dumpKind(long object);

    static native String dumpField(long object, long declaringClass, String name);

    static native String dumpStatic(long type, String name);

    static native String dumpElement(long array, long index);

    static native String[] dumpCounts();

    static native String[] dumpRoots(long object);

    /** One event; get() of what it does not have fails. */
    record Event(Map<String, String> values) {
        String get(String key) {
            String value = values.get(key);
            if (value == null) {
                throw new AssertionError("no " + key + " in " + values);
            }
            return value;
        }

        long number(String key) {
            return Long.parseLong(get(key));
        }
    }

    /** The events of a type since the last call. */
    static List<Event> events(int type) {
        return events(type, type);
    }

    /** The events of two types, in the order in which they came. */
    static List<Event> events(int type, int orType) {
        List<Event> events = new ArrayList<>();
        for (String line : takeEvents(type, orType)) {
            Map<String, String> values = new HashMap<>();
            for (String pair : line.split("\\|")) {
                int equals = pair.indexOf('=');
                Check.that(equals > 0, "not key=value: " + line);
                values.put(pair.substring(0, equals), pair.substring(equals + 1));
            }
            events.add(new Event(values));
        }
        return events;
    }

    record Frame(int line, long classId) {
    }

    static List<Frame> frames(long env, int depth) {
        List<Frame> frames = new ArrayList<>();
        for (String line : trace(env, depth)) {
            int blank = line.indexOf(' ');
            frames.add(new Frame(Integer.parseInt(line.substring(0, blank)),
                    Long.parseLong(line.substring(blank + 1))));
        }
        return frames;
    }

    /** The one load event that this request sends. */
    static Event requestClass(Class<?> type) {
        events(CLASS_LOAD);
        Check.equal(SUCCESS, request(CLASS_LOAD, idOf(type)));
        List<Event> sent = events(CLASS_LOAD);
        Check.equal(1, sent.size());
        return sent.get(0);
    }
}
