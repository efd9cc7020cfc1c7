// What the floors above tell a server anew when a connection has been made. One listener for the
// process, told of itself while the managers are made and never taken away.
#pragma once

#include <jni.h>

#include <atomic>

class ThreadData;

class ResendListener {
public:
    // On a network agent's thread, right after it has connected; what is queued goes into the
    // calling thread's queue.
    virtual void connected(JNIEnv* env) = 0;
    // On the leading event agent's thread, behind the initial records; queue is the agents' own.
    virtual void initialRecordsSent(JNIEnv* env, ThreadData* queue) = 0;

    static void use(ResendListener* listener) {
        current_.store(listener, std::memory_order_release);
    }
    static ResendListener* current() { return current_.load(std::memory_order_acquire); }

protected:
    ~ResendListener() = default;

private:
    static inline std::atomic<ResendListener*> current_{nullptr};
};
