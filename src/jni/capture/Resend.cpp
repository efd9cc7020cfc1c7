#include "capture/Resend.h"

#include "capture/EventUtils.h"
#include "capture/PortalMethodMgr.h"
#include "foundation/ProbeState.h"
#include "transport/ResendListener.h"

namespace {

class CaptureResend final : public ResendListener {
public:
    void connected(JNIEnv* env) override { PortalMethodMgr::pushMethodsToPS(env); }

    void initialRecordsSent(JNIEnv* env, ThreadData* queue) override {
        const SamplingRates rates = ProbeState::samplingRates();
        EventUtils::appendSamplingRateEvent(env, queue, rates.rates, rates.useDefault ? 1 : 0);
    }
};

}  // namespace

ResendListener& resendListener() {
    static auto& listener = *new CaptureResend;  // never destroyed: the agents' loops outlive us
    return listener;
}
