#include "support/CaptureFixture.h"

#include <unistd.h>

#include <cstdlib>

namespace fs = std::filesystem;

CaptureFixture::CaptureFixture() {
    std::string pattern = (fs::temp_directory_path() / "velora-capture-XXXXXX").string();
    home = mkdtemp(pattern.data());
    fs::create_directories(home / "etc");
    fs::create_directories(home / "logs");
    setenv("am.home", home.c_str(), 1);
    setenv("am.nodename", "n1", 1);
    setenv("am.appserver", "s1", 1);
    ProbeMgr::onLoadInitialize(vm.vm(), nullptr);
    ProbeMgr::initializeJVMPI();
    // Whatever the start-up found in the toolkit: these tests read the fake's lines.
    qLogger.store(QlgGetObject("logger.dc.msg", nullptr));
    qTracer.store(QlgGetObject("logger.dc.trace", nullptr));
    traceFrom(kDebugMin);
    ProbeMgr::setEventMgrReady(true);
    ProbeMgr::setNetworkMgrReady(true);
    MemoryMonitor::getInstance()->start();
    ThreadMgr::getInstance()->start();
    thread = ThreadMgr::getInstance()->createSpecialEventQueue(env);
    qlog.clearLines();
}

CaptureFixture::~CaptureFixture() {
    openGate();
    ThreadMgr::getInstance()->stop();
    ThreadMgr::destroy();
    MemoryMonitor::destroy();
    PropertyMgr::destroy();
    std::error_code ignored;
    fs::remove_all(home, ignored);
}

void CaptureFixture::closeGate() {
    MemoryMonitor::getInstance()->checkForULimit(1UL << 40);
}

void CaptureFixture::openGate() {
    MemoryMonitor::getInstance()->checkForULimit(0);
}

void CaptureFixture::disableProbe() {
    // The probe stays enabled until it is stopped; the stop waits in the fake's no time.
    ProbeMgr::getInstance()->probeStop(env);
}

void CaptureFixture::set(const char* key, const char* value) {
    PropertyMgr::getInstance()->putProperty(key, value);
    MemoryMonitor::getInstance()->start();
    qlog.clearLines();
}

JNIEnv* CaptureFixture::addThread() {
    JNIEnv* const added = jni.newEnv();
    ThreadMgr::getInstance()->createSpecialEventQueue(added);
    return added;
}

ThreadData* CaptureFixture::record(JNIEnv* env) {
    return ThreadMgr::getInstance()->getThreadDataIfPresent(env);
}

std::vector<std::unique_ptr<Event>> CaptureFixture::take(ThreadData* from) {
    std::vector<std::unique_ptr<Event>> events;
    while (Event* const event = from->getEvtQueue()->pop()) {
        MemoryMonitor::delFromMemCntr(event->getType(), event->size_, from);
        events.emplace_back(event);
    }
    return events;
}
