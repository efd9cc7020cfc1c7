// Builds the events of capture and puts them into the producing thread's queue.
//
// Ownership: an event passes to the thread's queue the moment it is appended, whether or not the
// queue takes it; no builder touches an event afterwards. Strings attached to events are arrays of
// their own, cut at the memory monitor's limits, or the shared empty text. Threads: a builder runs
// on the thread whose JNIEnv it is given and writes that thread's record only. Gate: the builders
// do not ask the memory monitor; the natives do, once, before they build anything. The exceptions
// are the two GC builders, which the VM's event dispatcher calls without a native.
#pragma once

#include <jni.h>

#include "capture/CallText.h"
#include "event/Event.h"
#include "jvmpi/gc_edge.h"

class ThreadData;

class EventUtils {
public:
    EventUtils() = delete;

    // Queues event on thread; with a null thread the caller's record is made first, and when none
    // can be had the event is deleted with a warning (1045). The queue's answer. Null event: false.
    static bool appendRequestEvent(JNIEnv* env, ThreadData* thread, Event* event);

    // Stamps a request event, gives it its names (null: empty), settles the thread's correlation
    // token for GPS events and queues it. Takes ownership in every case; without a record the event
    // is deleted with a debug line. The caller has set depth and user name (null: empty).
    static void sendRequest(JNIEnv* env, ThreadData* thread, RequestEvent* event,
                            const CallText& requestName, const CallText& applicationName,
                            const CallText& url);

    // A class-and-method event (the IIOP kinds): raises the thread's depth on START, lowers it
    // after an END. extra goes to the event's own completion step. False when the event was not
    // queued.
    static bool appendCommonEvent(JNIEnv* env, EventType type, EventSubType phase,
                                  const CallText& className, const CallText& methodName,
                                  jstring* extra);
    // The event object of a class-and-method kind; null for any other kind. The caller owns it.
    [[nodiscard]] static CommonEvent* createCommonEvent(EventType type, EventSubType phase);

    // Stamps and queues a CONNECT or COMPLETE; a CONNECT also becomes the thread's correlation
    // token.
    static void appendGPSReceiveEvent(JNIEnv* env, ThreadData* thread, GPSEvent* event);

    // One EJB call, nested like an HTTP request. The record's first name is the class, the second
    // the method and its url the descriptor; an END carries none of them.
    static void beginBeanRequest(JNIEnv* env, jstring className, jstring methodName,
                                 jstring descriptor);
    static void endBeanRequest(JNIEnv* env, jstring className, jstring methodName,
                               jstring descriptor);

    // Garbage collections, on the queue of env's thread; ignored with a null env.
    // With the edge of the pause where the VM's side tells it, else as of now.
    static void appendGCStartEvent(JNIEnv* env, const GcEdge& edge = {});
    static void appendGCEndEvent(JNIEnv* env, jlong usedObjects, jlong usedSpace, jlong totalSpace,
                                 const GcEdge& edge = {});

    // The sampling rates of the four levels (percent); queued on the given thread, never dropped.
    static void appendSamplingRateEvent(JNIEnv* env, ThreadData* thread, const int levels[4],
                                        int useDefault);
    // The marker that this thread's events are no longer taken.
    static void appendDroppedEvent(JNIEnv* env, ThreadData* thread);

    // Lock steps of the instrumented application, at the depth of the thread's current request.
    // methodId: the method that performs the step. lockName: class of the lock object.
    // False when nothing was queued.
    static jboolean beginLockAcquisition(JNIEnv* env, jint methodId, jstring lockName);
    static jboolean endLockAcquisition(JNIEnv* env, jint methodId, jstring lockName);
    // The owner* values describe who holds the lock: the kind of its request (low 8 bits), the
    // request's and application's names, and the method in which it took the lock. ownerDepth is
    // accepted and not recorded: the record has no place for it.
    static jboolean beginLockContention(JNIEnv* env, jint methodId, jstring lockName,
                                        jbyte ownerRequestType, jstring ownerRequestName,
                                        jstring ownerApplicationName, jint ownerMethodId,
                                        jint ownerDepth);
    static jboolean endLockContention(JNIEnv* env, jint methodId, jstring lockName,
                                      jbyte ownerRequestType, jstring ownerRequestName,
                                      jstring ownerApplicationName, jint ownerMethodId,
                                      jint ownerDepth);
    static jboolean beginLockRelease(JNIEnv* env, jint methodId, jstring lockName);
    static jboolean endLockRelease(JNIEnv* env, jint methodId, jstring lockName);

    // One object allocation of the instrumented application: where (method, source line) and what.
    static bool appendHeapEvent(JNIEnv* env, EventSubType phase, jint methodId, jint lineNumber,
                                jstring className);
};
