package com.velora.probe.lock;

/** Steps of monitor use of instrumented code. */
public final class LockAnalysisRuntime {
    public static final byte BEGIN_ACQUISITION = 1;
    public static final byte END_ACQUISITION = 2;
    public static final byte BEGIN_CONTENTION = 3;
    public static final byte END_CONTENTION = 4;
    public static final byte BEGIN_RELEASE = 5;
    public static final byte END_RELEASE = 6;

    private LockAnalysisRuntime() {
    }

    /**
     * Reports one step. The owner's fields count for contention only.
     *
     * @param kind one of the constants
     * @param lockName the class of the lock
     * @param methodId the method that takes or gives the lock
     */
    public static native boolean appendEvent(byte kind, String lockName, int methodId, byte ownerRequestType,
            String ownerRequestName, String ownerApplicationName, int ownerMethodId, int ownerDepth);
}
