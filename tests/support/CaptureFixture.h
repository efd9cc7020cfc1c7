// A collector that captures, without workers: identity and settings from a home folder of its own,
// the probe enabled, one monitored thread whose queue the test empties by hand.
#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "agent/ProbeMgr.h"
#include "event/Events.h"
#include "event/ThreadData.h"
#include "event/ThreadMgr.h"
#include "foundation/PropertyMgr.h"
#include "support/VelFixture.h"
#include "transport/MemoryMonitor.h"

class CaptureFixture : public VelFixture {
protected:
    CaptureFixture();
    ~CaptureFixture() override;

    // Capture stops, as if the memory limit had been reached; or goes on.
    static void closeGate();
    static void openGate();
    void disableProbe();

    void set(const char* key,
             const char* value);  // a property; the memory monitor rereads its limits
    // Another monitored thread with a record of its own.
    JNIEnv* addThread();
    static ThreadData* record(JNIEnv* env);

    // Takes everything queued on a thread, oldest first.
    static std::vector<std::unique_ptr<Event>> take(ThreadData* from);
    std::vector<std::unique_ptr<Event>> take() { return take(thread); }
    // The one event that must be queued, as its class; null, with a failure, for anything else.
    template <typename Kind>
    std::unique_ptr<Kind> takeOne() {
        auto events = take();
        EXPECT_EQ(events.size(), 1U);
        if (events.size() != 1) return nullptr;
        auto* const kind = dynamic_cast<Kind*>(events[0].get());
        EXPECT_NE(kind, nullptr) << "event of kind " << events[0]->getType();
        if (kind != nullptr) events[0].release();
        return std::unique_ptr<Kind>(kind);
    }

    std::filesystem::path home;
    ThreadData* thread;  // env's record
};
