// Describes threads for the start event.
#include "jvmpi/ThreadEvents.h"

#include "jvmpi/Edge.h"
#include "jvmpi/EventSwitch.h"
#include "jvmpi/ObjectIds.h"
#include "jvmpi/ThreadMap.h"

namespace adapter {
namespace {

// Names of a thread, its group and that group's parent; what is not known is null.
class ThreadDescription {
public:
    ThreadDescription(JNIEnv* env, jthread thread) {
        jvmtiThreadInfo info{};
        if (vmti()->GetThreadInfo(thread, &info) != JVMTI_ERROR_NONE) return;
        const LocalRef<> loader(env, info.context_class_loader);
        const LocalRef<jthreadGroup> group(env, info.thread_group);
        name_ = VmMemory<char>(info.name);
        if (!group) return;
        const LocalRef<jthreadGroup> parent(env, nameGroup(group.get(), groupName_));
        if (parent) {
            const LocalRef<jthreadGroup> above(env, nameGroup(parent.get(), parentName_));
        }
    }

    void fill(JVMPI_Event& event) const {
        event.u.thread_start.thread_name = name_.get();
        event.u.thread_start.group_name = groupName_.get();
        event.u.thread_start.parent_name = parentName_.get();
    }

private:
    // The group's parent, a new local reference or null.
    static jthreadGroup nameGroup(jthreadGroup group, VmMemory<char>& name) {
        jvmtiThreadGroupInfo info{};
        if (vmti()->GetThreadGroupInfo(group, &info) != JVMTI_ERROR_NONE) return nullptr;
        name = VmMemory<char>(info.name);
        return info.parent;
    }

    VmMemory<char> name_;
    VmMemory<char> groupName_;
    VmMemory<char> parentName_;
};

void sendThreadStart(JNIEnv* sender, JNIEnv* meant, jthread thread, jint type) {
    const ThreadDescription description(sender, thread);
    JVMPI_Event event{};
    event.event_type = type;
    event.env_id = sender;
    description.fill(event);
    event.u.thread_start.thread_id = idOfObject(sender, thread);
    event.u.thread_start.thread_env_id = meant;
    sendEvent(event);
}

void announce(JNIEnv* env, jthread thread) {
    const bool first = threadBegan(env, thread);
    if (first && isEventOn(JVMPI_EVENT_THREAD_START)) {
        sendThreadStart(env, env, thread, JVMPI_EVENT_THREAD_START);
    }
}

}  // namespace

bool followThreadEvents() {
    if (isEventOn(JVMPI_EVENT_THREAD_START) || isEventOn(JVMPI_EVENT_THREAD_END)) followThreads();
    return true;
}

void JNICALL onThreadStart(jvmtiEnv*, JNIEnv* env, jthread thread) {
    atEdge([&] { announce(env, thread); });
}

void JNICALL onThreadEnd(jvmtiEnv*, JNIEnv* env, jthread) {
    atEdge([&] {
        sendPlainEvent(JVMPI_EVENT_THREAD_END, env);
        threadEnded(env);
    });
}

void announceMainThread(JNIEnv* env, jthread main) {
    if (isEventOn(JVMPI_EVENT_THREAD_START)) announce(env, main);
}

jint requestThreadStart(JNIEnv* wanted) {
    JNIEnv* env = currentEnv();
    const LocalRef<jthread> thread = threadOf(env, wanted);
    if (!thread) return JVMPI_FAIL;
    const ExceptionAside aside(env);
    sendThreadStart(env, wanted, thread.get(), JVMPI_EVENT_THREAD_START | JVMPI_REQUESTED_EVENT);
    return JVMPI_SUCCESS;
}

}  // namespace adapter
