// Events on their way from a queue, a few at a time.
#pragma once

#include "event/Event.h"
#include "foundation/VelList.h"

// Events taken from a queue under one lock. Small, because the queue's thread waits meanwhile.
inline constexpr long kBatch = 64;

// The first element of a list that only the caller knows; null when it is empty.
inline Event* first(VelList<Event*>& list) {
    return VelListIter<Event*>(&list).next();
}

// Puts what is left of a batch back to the front of its queue, also when memory runs out on the
// way: it must never end up with another thread's events.
class PutBack {
public:
    PutBack(VelList<Event*>* queue, VelList<Event*>* batch) : queue_(queue), batch_(batch) {}
    ~PutBack() { queue_->prependAll(batch_); }
    PutBack(const PutBack&) = delete;
    PutBack& operator=(const PutBack&) = delete;

private:
    VelList<Event*>* queue_;
    VelList<Event*>* batch_;
};
