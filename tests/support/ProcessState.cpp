// Each test leaves the process as it found it: what the collector keeps for the whole process, and
// no fixture of its own puts back, goes back to how a library just loaded has it.
#include <gtest/gtest.h>

#include "event/GPSTokenUtils.h"
#include "foundation/ProbeState.h"
#include "instrument/class.h"
#include "support/ThreadDataProbe.h"

class ProbeStateAccess {
public:
    static void reset() {
        ProbeState::disabled_ = true;
        ProbeState::eventMgrReady_ = false;
        ProbeState::netMgrReady_ = false;
        ProbeState::setLevel(2);
        ProbeState::setSamplingRates({});
        ProbeState::setDispatcher(nullptr);
    }
};

class GPSTokenAccess {
public:
    static void reset() { GPSTokenUtils::forget(); }
};

namespace {

class AfterEachTest : public testing::EmptyTestEventListener {
    void OnTestEnd(const testing::TestInfo&) override {
        ProbeStateAccess::reset();
        GPSTokenAccess::reset();
        ThreadDataProbe::limit(0);  // not read yet
        ClassSequenceID = 0;
    }
};

[[maybe_unused]] const bool listens = [] {
    testing::UnitTest::GetInstance()->listeners().Append(new AfterEachTest);
    return true;
}();

}  // namespace
