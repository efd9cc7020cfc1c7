// What every builder does to its event: thread id, clocks, texts.
#pragma once

#include <jni.h>

#include <cstdint>

#include "capture/CallText.h"
#include "event/Event.h"

class ThreadData;

namespace capture {

// The clock that is read first stands outside the interval between a begin and its end.
enum class ClockOrder { wallFirst, cpuFirst };

// Where the times come from; tests replace them.
struct Clocks {
    void (*wall)(std::uint32_t* sec, std::uint32_t* usec);
    jlong (*cpu)();  // ns, of the calling thread
    // Both from one reading; false when they have to be read one by one. Null: they always have.
    bool (*both)(std::uint32_t* sec, std::uint32_t* usec, jlong* cpu) = nullptr;
};
extern Clocks clocks;

// Thread id (0 without a record), wall time and thread CPU time, which never runs backwards within
// a record. Two clocks from one reading where the thread has not been off its processor.
void stamp(Event& event, ThreadData* thread, ClockOrder order);

// In the order that keeps the CPU readings of a begin and its end inside the measured interval.
inline void stamp(Event& event, ThreadData* thread) {
    stamp(event, thread,
          event.getSubType() == START ? ClockOrder::wallFirst : ClockOrder::cpuFirst);
}

// A text for the event: a Java string copied and cut at the limit (bytes with the terminator; 0:
// the URL limit), its length added to the event's cost, or a registered text. Never null.
[[nodiscard]] char* attach(Event& event, JNIEnv* env, const CallText& text, int limit = 0);

// The same without a charge: a request is charged its URL's average length for all its texts.
[[nodiscard]] char* copyText(JNIEnv* env, Event& event, const CallText& text);

// Charges bytes to the event; the cost stays at its greatest value rather than wrap.
void charge(Event& event, int bytes);

inline jmethodID methodIdFrom(jint id) {
    // NOLINTNEXTLINE(performance-no-int-to-ptr): ids travel through Java as ints
    return reinterpret_cast<jmethodID>(static_cast<std::intptr_t>(id));
}

}  // namespace capture
