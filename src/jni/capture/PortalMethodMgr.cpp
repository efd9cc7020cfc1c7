#include "capture/PortalMethodMgr.h"

#include <cstring>
#include <memory>

#include "capture/CallingThread.h"
#include "capture/EventStamp.h"
#include "capture/EventUtils.h"
#include "event/PortalEvents.h"
#include "foundation/Log.h"
#include "foundation/Utils.h"

namespace {

void announce(JNIEnv* env, signed char id, char* name) {
    ThreadData* const thread = callingThread(env);
    if (thread == nullptr) return;
    auto event = std::make_unique<PortalMethodConstantEvent>(NOSTYPE);
    capture::stamp(*event, thread);
    event->methodId = id;
    event->methodName = name;
    EventUtils::appendRequestEvent(env, thread, event.release());
}

}  // namespace

PortalMethodMgr& PortalMethodMgr::getInstance() {
    static auto& instance = *new PortalMethodMgr;
    return instance;
}

PortalMethodMgr::PortalMethodMgr() : names_(15, true) {
    for (int i = 0; i <= kMaxIds; ++i) ids_[i] = static_cast<signed char>(i);
}

signed char PortalMethodMgr::getMethodId(JNIEnv* env, const char* methodName) {
    VEL_TRACE("PortalMethodMgr::getMethodId(JNIEnv*, const char*)");
    if (methodName == nullptr || *methodName == '\0') return 0;
    char* name = nullptr;
    signed char id = 0;
    {
        const VelLockGuard hold(lock_);
        for (int i = 1; i <= lastId_; ++i)
            if (std::strcmp(names_.get(&ids_[i]), methodName) == 0) return ids_[i];
        if (lastId_ == kMaxIds) return 0;
        name = Utils::cstrdup(methodName);
        names_.put(&ids_[lastId_ + 1], name);
        id = ids_[++lastId_];
    }
    announce(env, id, name);
    return id;
}

const char* PortalMethodMgr::getMethodName(signed char id) {
    return id < 1 ? nullptr : names_.get(&ids_[id]);
}

void PortalMethodMgr::resendAll(JNIEnv* env) {
    VEL_TRACE("PortalMethodMgr::resendAll(JNIEnv*)");
    for (int i = 1; i <= kMaxIds; ++i) {
        char* const name = names_.get(&ids_[i]);
        if (name == nullptr) return;
        announce(env, ids_[i], name);
    }
}
