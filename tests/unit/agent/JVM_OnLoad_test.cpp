// The start-up: its order, the MOD file, the identity, the switches read from the settings.
#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "agent/ProbeMgr.h"
#include "agent/ProbeSystem.h"
#include "agent/velora.h"
#include "foundation/Platform.h"
#include "foundation/PropertyMgr.h"
#include "instrument/InstrumentConfig.h"
#include "support/TestHome.h"
#include "support/VelFixture.h"

namespace {

using EventCalls = std::vector<std::pair<std::string, jint>>;

class OnLoadTest : public VelFixture {
protected:
    OnLoadTest() {
        for (const char* name : {"am.home", "am.nodename", "am.appserver", "am.profilename"})
            unsetenv(name);
        setenv("am.home", home.path().c_str(), 1);
        // "am.mod" falls back to the working directory: one of our own, so that none is left
        // behind.
        std::filesystem::current_path(home.path());
        jvmpi = nullptr;
        for (const char* object :
             {"handler.file.dc.msg", "handler.file.dc.trace", "handler.ffdc.dc"})
            qlog.addObject(object, "qlg_filehandler");
    }
    ~OnLoadTest() override {
        PropertyMgr::destroy();
        unsetenv("am.home");
        std::filesystem::current_path(before);
    }

    jint load(const char* options = nullptr) {
        std::string text = options == nullptr ? "" : options;
        return JVM_OnLoad(vm.vm(), options == nullptr ? nullptr : text.data(), nullptr);
    }
    std::string numbers() {
        std::string all;
        for (const FakeQlog::Line& line : qlog.lines())
            if (line.number != 0) all += std::to_string(line.number) + " ";
        return all;
    }
    void settings(const std::string& text) { home.write("etc/datacollector.properties", text); }

    const std::filesystem::path before = std::filesystem::current_path();
    TestHome home;
};

TEST_F(OnLoadTest, RunsItsStepsInOrder) {
    settings("a=b\n");
    EXPECT_EQ(load(), 0);
    // 1008, 1010: no node, no server; then MOD file, level, build, interface.
    EXPECT_EQ(numbers(), "1008 1010 1078 1080 1081 1016 ");
    EXPECT_EQ(vm.eventCalls(), (EventCalls{{"enable", 2000}, {"enable", 35}, {"enable", 46}}));
    EXPECT_EQ(vm.getEnvCalls, 1) << "the second call finds the interface";
    EXPECT_EQ(vm.interface()->NotifyEvent, EventDispatcher);
    EXPECT_EQ(jvmpi, vm.interface());
    EXPECT_EQ(processId, getProcessId());
    EXPECT_TRUE(ProbeMgr::isProbeDisabled());
    EXPECT_EQ(qlog.messages(1081)[0].text,
              "Native Library Build TIME : 12:51:08 DATE: Jun 29 2006");
}

TEST_F(OnLoadTest, AnInstalledHandlerIsKept) {
    const auto mine = [](JVMPI_Event*) {};
    vm.interface()->NotifyEvent = mine;
    EXPECT_EQ(load(), 0);
    EXPECT_EQ(vm.interface()->NotifyEvent, static_cast<void (*)(JVMPI_Event*)>(mine));
}

TEST_F(OnLoadTest, WithoutTheInterfaceTheVmIsTold) {
    vm.refuseInterface = true;
    EXPECT_EQ(load(), -1);
    EXPECT_EQ(qlog.messages(1015).size(), 1U);
    EXPECT_TRUE(vm.eventCalls().empty());
}

TEST_F(OnLoadTest, AMalformedConfigurationLeavesHookAndInitDoneOff) {
    home.write("etc/instrumentation.properties", "nonsense\n");
    EXPECT_EQ(load(), 0);
    EXPECT_EQ(vm.eventCalls(), (EventCalls{{"enable", 2000}}));
    EXPECT_EQ(qlog.messages(1183).size(), 1U);
}

TEST_F(OnLoadTest, AHomeThatDoesNotExistLeavesTheServerAlone) {
    setenv("am.home", "/nowhere/at/all", 1);
    EXPECT_EQ(load(), 0);
    EXPECT_STREQ(modFileName, "am.mod");
    EXPECT_EQ(home.read("am.mod"), "2");
    EXPECT_EQ(qlog.messages(1069).size(), 1U);
}

TEST_F(OnLoadTest, OnlyLowerCaseDebugOnPausesWhateverFollows) {
    const auto quickestOfFive = [this](const char* options) {
        auto quickest = std::chrono::steady_clock::duration::max();
        for (int i = 0; i < 5; ++i) {
            const auto start = std::chrono::steady_clock::now();
            load(options);
            quickest = std::min(quickest, std::chrono::steady_clock::now() - start);
        }
        return quickest;
    };
    EXPECT_GE(quickestOfFive("debug=on,more"), std::chrono::milliseconds(30));
    EXPECT_LT(quickestOfFive("DEBUG=ON"), std::chrono::milliseconds(30));
}

TEST_F(OnLoadTest, TheEnvironmentNamesWhatTheCommandLineDoesNot) {
    setenv("am.nodename", "node", 1);
    setenv("am.appserver", "server", 1);
    setenv("am.profilename", "profile", 1);
    EXPECT_EQ(load(), 0);
    EXPECT_STREQ(ProbeMgr::getVeloraHome(), home.path().c_str());
    EXPECT_STREQ(ProbeMgr::getNodeName(), "node");
    EXPECT_STREQ(ProbeMgr::getAppServerName(), "server");
    EXPECT_STREQ(ProbeMgr::getProfileName(), "profile");
    EXPECT_TRUE(qlog.messages(1008).empty());
}

TEST_F(OnLoadTest, WithNoIdentityAnywhereThereAreDefaults) {
    unsetenv("am.home");
    ProbeMgr::onLoadInitialize(vm.vm(), nullptr);
    EXPECT_STREQ(ProbeMgr::getVeloraHome(), "/velora");
    EXPECT_STREQ(ProbeMgr::getNodeName(), "defaultnode");
    EXPECT_STREQ(ProbeMgr::getAppServerName(), "appserver");
    EXPECT_STREQ(ProbeMgr::getProfileName(), "");
    EXPECT_EQ(qlog.messages(1006).size(), 1U);
}

TEST_F(OnLoadTest, TheBootClassIsKeptInSlashForm) {
    settings("NOVT.bootclassname=org.acme.Boot\n");
    EXPECT_EQ(load(), 0);
    EXPECT_STREQ(ProbeMgr::getBootClassName(), "org/acme/Boot");
}

struct ModFile {
    const char* rule;
    const char* content;  // null: no file
    int level;
};

class ModFileTest : public OnLoadTest, public ::testing::WithParamInterface<ModFile> {};

TEST_P(ModFileTest, GivesTheLevel) {
    if (GetParam().content != nullptr) home.write("etc/am.mod", GetParam().content);
    EXPECT_EQ(load(), 0);
    EXPECT_EQ(ProbeMgr::getProbeLevel(), GetParam().level);
    EXPECT_EQ(probe_level, GetParam().level);
    EXPECT_EQ(home.read("etc/am.mod"), GetParam().content == nullptr ? "2" : GetParam().content);
    EXPECT_EQ(qlog.messages(1080)[0].text, "Using probe level " + std::to_string(GetParam().level));
}

INSTANTIATE_TEST_SUITE_P(Files, ModFileTest,
                         testing::Values(ModFile{"missingIsWritten", nullptr, 2},
                                         ModFile{"one", "1", 1}, ModFile{"withThousand", "1003", 3},
                                         ModFile{"zero", "0", 2}, ModFile{"seven", "7", 2},
                                         ModFile{"empty", "", 2}, ModFile{"noNumber", "x3", 2}),
                         [](const auto& info) { return std::string(info.param.rule); });

TEST_F(OnLoadTest, AModFileThatCanNeitherBeReadNorWrittenIsReported) {
    std::filesystem::create_directory(home.path("cwd"));
    Identity::set("/nowhere", "n", "s", "");
    std::filesystem::current_path(home.path("cwd"));
    std::filesystem::remove(home.path("cwd"));  // a working directory that takes no files
    FindMODFile();
    EXPECT_EQ(qlog.messages(1079).size(), 1U);
    EXPECT_EQ(ProbeMgr::getProbeLevel(), 2);
}

struct LockSettings {
    const char* rule;
    const char* text;
    bool useLocks;
    int cleanup;
    int interval;
};

class LockSettingsTest : public OnLoadTest, public ::testing::WithParamInterface<LockSettings> {};

TEST_P(LockSettingsTest, AreReadAtStart) {
    settings(GetParam().text);
    EXPECT_EQ(load(), 0);
    EXPECT_EQ(useMethodLocks, GetParam().useLocks);
    EXPECT_EQ(CLASSULOAD_CLEANUP, GetParam().cleanup);
    EXPECT_EQ(methodHashWaitInterval, GetParam().interval);
}

INSTANTIATE_TEST_SUITE_P(
    Settings, LockSettingsTest,
    testing::Values(
        LockSettings{"defaults", "", false, 150, 5000},
        LockSettings{"locksMakeUnloadsImmediate",
                     "internal.use.method.monitors=yes\nmethod.hash.cleanup=7\n", true, -1, 5000},
        LockSettings{"presenceAloneDisables",
                     "internal.use.method.monitors=yes\ninternal.use.method.monitors.disable=NO\n",
                     false, 150, 5000},
        LockSettings{"numbers", "method.hash.cleanup=-1\nmethod.hash.cleanupinterval=10\n", false,
                     -1, 10},
        LockSettings{"absurdCleanup", "method.hash.cleanup=-5\n", false, -1, 5000},
        LockSettings{"absurdInterval", "method.hash.cleanupinterval=-5\n", false, 150, 0}),
    [](const auto& info) { return std::string(info.param.rule); });

TEST_F(OnLoadTest, NestedRequestsAreDisabledByYesOnly) {
    settings("internal.disable.nestedrequests=Yes\n");
    EXPECT_EQ(load(), 0);
    EXPECT_TRUE(disableNestedRequests);
    EXPECT_EQ(qlog.messages(1151).size(), 1U) << "it does nothing at the level that is shipped";
    PropertyMgr::getInstance()->putProperty("internal.disable.nestedrequests", "true");
    f_disableNestedRequests();
    EXPECT_FALSE(disableNestedRequests);
}

}  // namespace
