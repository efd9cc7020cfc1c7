#include "TransportFixture.h"

#include <cstdlib>

#include "agent/ProbeMgr.h"
#include "capture/Resend.h"
#include "dc2ps/StreamDecoder.h"
#include "foundation/PropertyMgr.h"
#include "transport/ResendListener.h"

// --- PassGate ------------------------------------------------------------------------------------

void PassGate::enlist(const std::string& name) {
    const std::lock_guard hold(lock_);
    seats_[name] = Seat{std::this_thread::get_id(), false, false, 0, false};
}

void PassGate::reserve(const std::string& name) {
    const std::lock_guard hold(lock_);
    seats_[name] = Seat{};
}

void PassGate::leave(const std::string& name) {
    const std::lock_guard hold(lock_);
    seats_[name].ended = true;
    changed_.notify_all();
}

void PassGate::onWait() {
    std::unique_lock hold(lock_);
    for (auto& [name, seat] : seats_) {
        if (seat.thread != std::this_thread::get_id() || seat.ended) continue;
        seat.parked = true;
        changed_.notify_all();
        changed_.wait(hold, [&, s = &seat] { return open_ || s->free || s->permits > 0; });
        seat.parked = false;
        if (seat.permits > 0) --seat.permits;
        return;
    }
}

void PassGate::waitParked(const std::string& name) {
    std::unique_lock hold(lock_);
    changed_.wait(hold, [&] { return open_ || seats_[name].parked || seats_[name].ended; });
}

void PassGate::step(const std::string& name) {
    waitParked(name);
    std::unique_lock hold(lock_);
    Seat& seat = seats_[name];
    if (seat.ended || open_) return;
    ++seat.permits;
    seat.parked = false;
    changed_.notify_all();
    changed_.wait(hold, [&] { return open_ || (seat.parked && seat.permits == 0) || seat.ended; });
}

void PassGate::release(const std::string& name) {
    const std::lock_guard hold(lock_);
    seats_[name].free = true;
    changed_.notify_all();
}

void PassGate::open() {
    const std::lock_guard hold(lock_);
    open_ = true;
    changed_.notify_all();
}

void PassGate::close() {
    const std::lock_guard hold(lock_);
    open_ = false;
}

// --- TransportFixture ----------------------------------------------------------------------------

TransportFixture::TransportFixture() : lossesBefore_(LossBook::total()) {
    ResendListener::use(&resendListener());
    LossBook::write(true);
    qlog.clearLines();
    PropertyMgr::destroy();
    PropertyMgr::getInstance();
    vm.onWait = [this](const std::string&, jlong) { gate.onWait(); };
}

TransportFixture::~TransportFixture() {
    PropertyMgr::destroy();
}

void TransportFixture::TearDown() {
    stopAll();
    NetworkAgentMgr::destroy();
    EvtAgentMgr::destroy();
    ThreadMgr::destroy();
    MemoryMonitor::destroy();
    VelFixture::TearDown();
}

void TransportFixture::set(const char* key, const std::string& value) {
    PropertyMgr::getInstance()->putProperty(key, value.c_str());
}

void TransportFixture::definePsLookup() {
    jni.defineClass("com/velora/publish/pe_lookup")
        .staticMethod("initialize", "()I",
                      [this](JNIEnv*, jobject, const FakeJni::Args&) {
                          return FakeJni::of(jint{lookupAnswer()});
                      })
        .staticField("hostName_", "Ljava/lang/String;", FakeJni::of(jni.string(lookupHost)))
        .staticField("port_", "I", FakeJni::of(jint{server.port()}))
        .staticField("sendBuffSize_", "I", FakeJni::of(jint{65536}));
}

void TransportFixture::start(int eventAgents, int networkAgents) {
    javaSide();
    set("eventagent.pool.size", std::to_string(eventAgents));
    set("networkagent.pool.size", std::to_string(networkAgents));
    MemoryMonitor::getInstance()->start();
    NetworkAgentMgr::getInstance()->start();
    EvtAgentMgr::getInstance()->start();
    ThreadMgr::getInstance()->start();
}

void TransportFixture::run(const std::string& name, const std::function<void(JNIEnv*)>& body) {
    JNIEnv* const workerEnv = jni.newEnv();
    workerEnvs[name] = workerEnv;
    gate.reserve(name);
    workers[name] = std::thread([this, name, body, workerEnv] {
        gate.enlist(name);
        jni.bindThread(workerEnv);
        body(workerEnv);
        gate.leave(name);
    });
    gate.waitParked(name);
}

void TransportFixture::runEventAgent(int id) {
    run("e" + std::to_string(id),
        [id](JNIEnv* mine) { EvtAgentMgr::getInstance()->startEvtAgent(mine, id); });
}

void TransportFixture::runNetworkAgent(int id) {
    run("n" + std::to_string(id),
        [id](JNIEnv* mine) { NetworkAgentMgr::getInstance()->startNetworkAgent(mine, id); });
}

void TransportFixture::runAll(int eventAgents, int networkAgents) {
    start(eventAgents, networkAgents);
    for (int id = 0; id < networkAgents; ++id) runNetworkAgent(id);
    for (int id = 0; id < eventAgents; ++id) runEventAgent(id);
}

void TransportFixture::join(const std::string& name) {
    if (workers[name].joinable()) workers[name].join();
}

void TransportFixture::stopAll() {
    gate.open();
    if (naMgr_.load() != nullptr) NetworkAgentMgr::getInstance()->stop();
    if (evtMgr_.load() != nullptr) EvtAgentMgr::getInstance()->stop();
    for (auto& [name, worker] : workers)
        if (worker.joinable()) worker.join();
    if (thrMgr_.load() != nullptr) ThreadMgr::getInstance()->stop();
    if (memMon_.load() != nullptr) MemoryMonitor::getInstance()->stop();
}

ThreadData* TransportFixture::newThread() {
    return ThreadMgr::getInstance()->getThreadData(jni.newEnv());
}

void TransportFixture::produce(ThreadData* thread, int count, EventSubType phase) {
    for (int i = 0; i < count; ++i) {
        auto* const event = new SQLEvent(phase);
        event->threadId_ = thread->getThreadIntId();
        event->data_source_name = emptyText();
        event->sql = emptyText();
        ++produced;
        thread->appendEvent(event);
    }
}

namespace {

class Counter : public dc2ps::RecordSink {
public:
    explicit Counter(Received* into) : into_(into) {}

    void onRecord(std::uint64_t offset, const dc2ps::Record& record) override {
        if (offset == 0 && !std::holds_alternative<dc2ps::AgentInit>(record))
            into_->initFirst = false;
        std::visit([this](const auto& r) { count(r); }, record);
    }

private:
    void count(const dc2ps::AgentInit&) { ++into_->inits; }
    void count(const dc2ps::ServerInit&) {}
    void count(const dc2ps::PacketHeader&) { ++into_->packets; }
    void count(const dc2ps::Dropped& r) {
        note(r);
        ++into_->dropRecords;
        into_->dropped += r.requestStarts + r.requestEnds + r.methodStarts + r.methodEnds +
                          r.sqlStarts + r.sqlEnds;
    }
    void count(const dc2ps::Sampling& r) {
        note(r);
        ++into_->samplings;
    }
    template <typename R>
    void count(const R& r) {
        note(r);
        ++into_->events;
    }
    template <typename R>
    void note(const R& r) {
        into_->kinds.push_back(static_cast<int>(r.type));
    }

    Received* into_;
};

}  // namespace

Received TransportFixture::received() const {
    Received all;
    Counter counter(&all);
    for (std::size_t i = 0; i < server.connections(); ++i) {
        dc2ps::StreamDecoder decoder;
        const std::vector<std::uint8_t> bytes = server.bytes(i);
        if (decoder.feed(bytes, counter).status == dc2ps::FeedResult::Status::error)
            all.whole = false;
    }
    return all;
}

long TransportFixture::lostLines() const {
    long sum = 0;
    for (const FakeQlog::Line& line : qlog.messages(1121)) sum += std::atol(line.text.c_str() + 14);
    return sum;
}

void TransportFixture::expectBooksBalance() {
    LossBook::write(true);
    const Received got = received();
    EXPECT_TRUE(got.whole);
    EXPECT_TRUE(got.initFirst);
    EXPECT_EQ(produced, got.events + got.dropped + lostLines())
        << "delivered " << got.events << ", in drop records " << got.dropped << ", logged "
        << lostLines();
    EXPECT_EQ(LossBook::total() - lossesBefore_, lostLines());
}
