// Who drains the queues of the registry's threads: implemented by the event agents' manager on the
// floor above, which tells the registry of itself (ThreadMgr::useAgents).
#pragma once

class ThreadData;

class ThreadAgents {
public:
    virtual bool isReady() const = 0;
    // Gives a new record to an agent; 0 when nobody takes it.
    virtual int manageThreadData(ThreadData* thread) = 0;

protected:
    ~ThreadAgents() = default;
};
