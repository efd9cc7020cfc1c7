// Sends class-load and class-unload events.
#include "jvmpi/ClassEvents.h"

#include <semaphore.h>

#include <atomic>

#include "jvmpi/ClassDescription.h"
#include "jvmpi/ClassIds.h"
#include "jvmpi/Edge.h"
#include "jvmpi/EventSwitch.h"
#include "jvmpi/ThreadControl.h"

namespace adapter {
namespace {

jint sendClassLoad(JNIEnv* env, jclass type, jint eventType) {
    ClassDescription description(env, type);
    if (!description.isComplete()) return JVMPI_FAIL;
    JVMPI_Event event{};
    event.event_type = eventType;
    event.env_id = env;
    description.fill(event);
    sendEvent(event);
    return JVMPI_SUCCESS;
}

sem_t unloads;                      // one post per freed mirror
std::atomic<bool> prepared{false};  // unloads is usable
std::atomic<bool> ending{false};

void postUnload() {
    sem_post(&unloads);
}

void sendClassUnload(JNIEnv* env, jobjectID id) {
    if (!isEventOn(JVMPI_EVENT_CLASS_UNLOAD)) return;
    JVMPI_Event event{};
    event.event_type = JVMPI_EVENT_CLASS_UNLOAD;
    event.env_id = env;
    event.u.class_unload.class_id = id;
    sendEvent(event);
}

void JNICALL sendUnloads(jvmtiEnv*, JNIEnv* env, void*) {
    for (;;) {
        while (sem_wait(&unloads) != 0) {
        }
        if (ending.load(std::memory_order_acquire)) return;
        atEdge([&] { drainUnloaded([&](jobjectID id) { sendClassUnload(env, id); }); });
    }
}

}  // namespace

bool followClassLoad() {
    return setNotified(JVMTI_EVENT_CLASS_PREPARE, isEventOn(JVMPI_EVENT_CLASS_LOAD));
}

void JNICALL onClassPrepare(jvmtiEnv*, JNIEnv* env, jthread, jclass type) {
    if (!isEventOn(JVMPI_EVENT_CLASS_LOAD)) return;
    atEdge([&] {
        const ExceptionAside aside(env);
        sendClassLoad(env, type, JVMPI_EVENT_CLASS_LOAD);
    });
}

bool followClassUnload() {
    if (!isEventOn(JVMPI_EVENT_CLASS_UNLOAD)) return true;
    static bool started = false;  // this and prepared are changed under the switch's lock only
    if (!prepared.load()) {
        if (sem_init(&unloads, 0, 0) != 0) return false;
        prepared = true;
        setFreedListener(postUnload);
    }
    if (!isLive() || started) return true;  // until the VM is up the queue just fills
    started = startAgentThread(currentEnv(), "JVMPI class unload events",
                               JVMTI_THREAD_NORM_PRIORITY, sendUnloads, nullptr);
    return started;
}

void endUnloadSender() {
    ending.store(true, std::memory_order_release);
    if (prepared.load()) sem_post(&unloads);
}

jint requestClassLoad(jobjectID id) {
    JNIEnv* env = currentEnv();
    if (env == nullptr || !isLive()) return JVMPI_FAIL;
    const ExceptionAside aside(env);
    const LocalRef<jclass> type = classOfId(env, id);
    if (!type) return JVMPI_FAIL;
    return sendClassLoad(env, type.get(), JVMPI_EVENT_CLASS_LOAD | JVMPI_REQUESTED_EVENT);
}

}  // namespace adapter
