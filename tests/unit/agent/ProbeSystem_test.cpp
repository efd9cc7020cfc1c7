// The command line's view of the server, and the natives of ProbeSystem.
#include "agent/ProbeSystem.h"

#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "agent/CommandLine.h"
#include "diagnostics/javacore.h"
#include "instrument/method.h"
#include "support/CaptureFixture.h"
#include "support/TestHome.h"

extern "C" {
void Java_com_velora_probe_ProbeSystem_initializeNative(JNIEnv*, jclass);
jint Java_com_velora_probe_ProbeSystem_getProcessId(JNIEnv*, jclass);
jint Java_com_velora_probe_ProbeSystem_getCpuCount(JNIEnv*, jclass);
jlong Java_com_velora_probe_ProbeSystem_getProcessCpuTime(JNIEnv*, jclass);
jintArray Java_com_velora_probe_ProbeSystem_getSamplingRates(JNIEnv*, jclass);
void Java_com_velora_probe_ProbeSystem_setSamplingRates(JNIEnv*, jclass, jintArray, jboolean);
jstring Java_com_velora_probe_ProbeSystem_getHome(JNIEnv*, jclass);
jstring Java_com_velora_probe_ProbeSystem_getModFileName(JNIEnv*, jclass);
void Java_com_velora_probe_ProbeSystem_setServerIdentity(JNIEnv*, jclass, jstring, jstring, jint);
}

namespace {

using Words = std::vector<std::string>;

struct SplitCase {
    const char* rule;
    const char* text;
    bool file;
    Words words;
};

class SplitOptionsTest : public ::testing::TestWithParam<SplitCase> {};

TEST_P(SplitOptionsTest, GivesTheWords) {
    EXPECT_EQ(splitOptions(GetParam().text, GetParam().file), GetParam().words);
}

INSTANTIATE_TEST_SUITE_P(
    Texts, SplitOptionsTest,
    testing::Values(SplitCase{"blanks", "  -a \t -b\n-c ", false, {"-a", "-b", "-c"}},
                    SplitCase{"quotes", "-Da=\"x y\" 'p q'", false, {"-Da=x y", "p q"}},
                    SplitCase{"emptyQuotes", "a '' b", false, {"a", "", "b"}},
                    SplitCase{"openQuote", "-a 'b c", false, {"-a", "b c"}},
                    SplitCase{"noCommentInOptions", "a #b", false, {"a", "#b"}},
                    SplitCase{"commentInFile", "-a # b c\n-d#e #", true, {"-a", "-d#e"}},
                    SplitCase{
                        "backslashInFileQuotes", "\"a\\\\b\\\"c\" d\\e", true, {"a\\b\"c", "d\\e"}},
                    SplitCase{"nothing", "", false, {}}),
    [](const auto& info) { return std::string(info.param.rule); });

class CommandLineTest : public ::testing::Test {
protected:
    CommandLineTest() { clear(); }
    ~CommandLineTest() override { clear(); }
    static void clear() {
        for (const char* name : {"JAVA_TOOL_OPTIONS", "JDK_JAVA_OPTIONS", "_JAVA_OPTIONS"})
            unsetenv(name);
    }
};

TEST_F(CommandLineTest, WhatFollowsTheProgramIsTheApplications) {
    const Words jar{"/opt/jdk/bin/java", "-Xmx1g",       "-cp", "a:b", "-jar",
                    "app.jar",           "-Dam.home=/no"};
    EXPECT_EQ(effectiveVmArguments(jar), (Words{"/opt/jdk/bin/java", "-Xmx1g", "-cp", "a:b"}));
    EXPECT_EQ(effectiveVmArguments({"java", "-cp", "-Dx", "Main", "-Dam.home=/no"}),
              (Words{"java", "-cp", "-Dx"}));
    EXPECT_EQ(effectiveVmArguments({"java", "-ea", "-m", "a/b.C", "-Dam.home=/no"}),
              (Words{"java", "-ea"}));
}

TEST_F(CommandLineTest, AnotherProgramsArgumentsAreTakenAsTheyAre) {
    EXPECT_EQ(effectiveVmArguments({"./server", "start", "-Dam.home=/h"}),
              (Words{"./server", "start", "-Dam.home=/h"}));
    EXPECT_EQ(effectiveVmArguments({}), Words{});
}

TEST_F(CommandLineTest, TheEnvironmentStandsBeforeAndBehind) {
    setenv("JAVA_TOOL_OPTIONS", "-Da=tool", 1);
    setenv("JDK_JAVA_OPTIONS", "-Da=jdk", 1);
    setenv("_JAVA_OPTIONS", "-Da=last", 1);
    EXPECT_EQ(effectiveVmArguments({"java", "-Da=line", "Main"}),
              (Words{"java", "-Da=tool", "-Da=jdk", "-Da=line", "-Da=last"}));
    EXPECT_EQ(effectiveVmArguments({"./server"}), (Words{"./server", "-Da=tool", "-Da=last"}));
}

TEST_F(CommandLineTest, ArgumentFilesAreRead) {
    const TestHome home;
    home.write("args", "-Dam.home=\"/a b\" # comment\n-cp x Main -Dam.home=/no\n");
    EXPECT_EQ(effectiveVmArguments({"java", "@" + home.path("args"), "-Dam.nodename=no"}),
              (Words{"java", "-Dam.home=/a b", "-cp", "x"}));
}

// A pipe that nobody writes to: reading it, even opening it, would keep the server from starting.
TEST_F(CommandLineTest, PipesAndTheApplicationsFilesAreLeftAlone) {
    const TestHome home;
    const std::string pipe = "@" + home.path("pipe");
    ASSERT_EQ(mkfifo(home.path("pipe").c_str(), 0600), 0);
    alarm(20);  // ends a test that hangs
    EXPECT_EQ(effectiveVmArguments({"java", "-ea", "Main", pipe}), (Words{"java", "-ea"}));
    EXPECT_EQ(effectiveVmArguments({"java", "-jar", "app.jar", pipe}), Words{"java"});
    EXPECT_EQ(effectiveVmArguments({"java", "-ea", pipe, "-Dam.home=/h"}),
              (Words{"java", "-ea", "-Dam.home=/h"}));
    alarm(0);
}

TEST_F(CommandLineTest, ArgumentFilesCanBeSwitchedOff) {
    const TestHome home;
    home.write("args", "-Dam.home=/h");
    const std::string file = "@" + home.path("args");
    EXPECT_EQ(effectiveVmArguments({"java", file, "--disable-@files", file, "-ea"}),
              (Words{"java", "-Dam.home=/h", "--disable-@files"}));
    EXPECT_EQ(effectiveVmArguments({"java", "-cp", file, "Main"}),
              (Words{"java", "-cp", "-Dam.home=/h"}));
}

TEST(ParseArgumentsTest, TheLastSettingOfEachWins) {
    ProbeSystem::parseArguments({"java", "-Dam.home=/one", "-Dam.home=/two", "-Dam.nodename=n",
                                 "-Dam.appserver=", "-Dam.profilename=p", "-Djava.ext.dirs=/e",
                                 "x-Dam.home=/three", "-Xmx5m"});
    EXPECT_STREQ(ProbeSystem::commandLineHome(), "/two");
    EXPECT_STREQ(ProbeSystem::commandLineNodeName(), "n");
    EXPECT_STREQ(ProbeSystem::commandLineAppServer(), "");
    EXPECT_STREQ(ProbeSystem::commandLineProfileName(), "p");
    EXPECT_STREQ(ProbeSystem::extensionDirs(), "/e");
    EXPECT_EQ(ProbeSystem::jvmArguments().back(), "-Xmx5m");
    ProbeSystem::parseArguments({});
    EXPECT_STREQ(ProbeSystem::commandLineHome(), "");
}

TEST(ModFileNameTest, NeedsAFolderThatCanBeUsed) {
    const TestHome home;
    char* const name = getMODFileName();
    EXPECT_EQ(std::string(name), home.path("etc/am.mod"));
    delete[] name;
    std::filesystem::remove_all(home.path("etc"));
    EXPECT_EQ(getMODFileName(), nullptr);
}

class ProbeSystemTest : public CaptureFixture {
protected:
    FakeJni::Class probeSystem() { return jni.defineClass("com/velora/probe/ProbeSystem"); }
    void initialize() {
        Java_com_velora_probe_ProbeSystem_initializeNative(
            env, jni.classRef("com/velora/probe/ProbeSystem"));
    }
    ULONG hashSizeFor(jint wanted) {
        probeSystem()
            .staticField("methodHashSize", "I", FakeJni::of(wanted))
            .staticField("probeStdout", "Ljava/lang/String;", FakeJni::of(jobject{nullptr}));
        initialize();
        return method_hash_size;
    }
    void fullName(FakeJni::Body body) {
        probeSystem().staticMethod("fullAppServerName", "()Ljava/lang/String;", std::move(body));
    }
};

struct HashSize {
    const char* rule;
    jint wanted;
    ULONG used;
    bool warned;
};

class HashSizeTest : public ProbeSystemTest, public ::testing::WithParamInterface<HashSize> {};

TEST_P(HashSizeTest, ComesFromJava) {
    method_hash_size = 7;
    EXPECT_EQ(hashSizeFor(GetParam().wanted), GetParam().used);
    EXPECT_EQ(!qlog.messages(1101).empty(), GetParam().warned);
}

INSTANTIATE_TEST_SUITE_P(Sizes, HashSizeTest,
                         testing::Values(HashSize{"zeroIsTheDefault", 0, 55511, false},
                                         HashSize{"given", 1009, 1009, false},
                                         HashSize{"negative", -1, 55511, true},
                                         HashSize{"absurd", 2000000000, 1000000, true}),
                         [](const auto& info) { return std::string(info.param.rule); });

TEST_F(ProbeSystemTest, ATableKeepsItsSize) {
    method_hash_size = 11;
    createMethodTable();
    EXPECT_EQ(hashSizeFor(1009), 11U);
    deleteMethodTable();
}

TEST_F(ProbeSystemTest, ProbeStdoutIsCopied) {
    probeSystem()
        .staticField("methodHashSize", "I", FakeJni::of(jint{0}))
        .staticField("probeStdout", "Ljava/lang/String;", FakeJni::of(jni.string("/var/out")));
    initialize();
    initialize();
    EXPECT_STREQ(probe_stdout, "/var/out");
}

TEST_F(ProbeSystemTest, AClassWithoutTheFieldsChangesNothing) {
    probeSystem();
    initialize();
    EXPECT_EQ(method_hash_size, 55511U);
    EXPECT_EQ(jni.pending(env), "");
}

TEST_F(ProbeSystemTest, FiguresOfTheProcess) {
    EXPECT_EQ(Java_com_velora_probe_ProbeSystem_getProcessId(env, nullptr), getpid());
    EXPECT_GE(Java_com_velora_probe_ProbeSystem_getCpuCount(env, nullptr), 1);
    const auto ms = [](const timeval& t) { return t.tv_sec * 1000 + t.tv_usec / 1000; };
    rusage used{};  // until there is time of both kinds
    while (getrusage(RUSAGE_SELF, &used) == 0 && ms(used.ru_stime) < 100)
        std::ifstream("/proc/self/stat").get();
    EXPECT_GE(Java_com_velora_probe_ProbeSystem_getProcessCpuTime(env, nullptr),
              ms(used.ru_utime) + ms(used.ru_stime) - 40);  // whole ticks
    EXPECT_EQ(jni.text(Java_com_velora_probe_ProbeSystem_getHome(env, nullptr)), home.string());
    EXPECT_EQ(jni.text(Java_com_velora_probe_ProbeSystem_getModFileName(env, nullptr)),
              (home / "etc/am.mod").string());
    jni.returnToJava(env);
}

TEST_F(ProbeSystemTest, SamplingRatesAreKeptAndAnnounced) {
    const auto set = [this](jintArray rates, bool useDefault) {
        Java_com_velora_probe_ProbeSystem_setSamplingRates(env, nullptr, rates,
                                                           useDefault ? JNI_TRUE : JNI_FALSE);
    };
    set(jni.intArray({10, 20, 30, 40}), false);
    EXPECT_EQ(jni.ints(Java_com_velora_probe_ProbeSystem_getSamplingRates(env, nullptr)),
              (std::vector<jint>{10, 20, 30, 40}));
    jni.returnToJava(env);
    EXPECT_FALSE(ProbeSystem::samplingRates().useDefault);
    const auto event = takeOne<SamplingEvent>();
    ASSERT_NE(event, nullptr);
    EXPECT_EQ(event->probeLevels[3], 40);
    EXPECT_EQ(event->useDefault, 0);
    set(nullptr, true);
    set(jni.intArray({1, 2, 3}), true);
    EXPECT_EQ(ProbeSystem::samplingRates().rates[0], 10) << "refused";
    disableProbe();
    set(jni.intArray({5, 5, 5, 5}), true);
    EXPECT_EQ(ProbeSystem::samplingRates().rates[0], 5) << "kept for the next connection";
}

TEST_F(ProbeSystemTest, ServerIdentityReachesTheRecords) {
    Java_com_velora_probe_ProbeSystem_setServerIdentity(env, nullptr, jni.string("9.0.85"),
                                                        jni.string("tomcat"), 8005);
    EXPECT_STREQ(ProbeMgr::getInstance()->getAppServerVersion(), "9.0.85");
    EXPECT_STREQ(ProbeMgr::getInstance()->getComponentId(), "tomcat");
    EXPECT_EQ(ProbeMgr::getInstance()->getAdminServerPort(), 8005);
    Java_com_velora_probe_ProbeSystem_setServerIdentity(env, nullptr, nullptr, jni.string(""), 1);
    EXPECT_STREQ(ProbeMgr::getInstance()->getAppServerVersion(), "9.0.85");
    EXPECT_STREQ(ProbeMgr::getInstance()->getComponentId(), "tomcat");
    ProbeMgr::getInstance()->setComponentId(std::string(300, 'x').c_str());
    EXPECT_EQ(std::string(ProbeMgr::getInstance()->getComponentId()), std::string(255, 'x'));
    ProbeMgr::destroy();
}

TEST_F(ProbeSystemTest, TheFullNameIsCutBetweenCharacters) {
    fullName([this](JNIEnv*, jobject, const FakeJni::Args&) {
        return FakeJni::of(jni.string("cell/\xC3\xBC/x"));
    });
    char whole[256] = "before";
    EXPECT_TRUE(getFullAppServerName(env, whole, sizeof whole));
    EXPECT_STREQ(whole, "cell/\xC3\xBC/x");
    char seven[7];
    EXPECT_TRUE(getFullAppServerName(env, seven, sizeof seven));
    EXPECT_STREQ(seven, "cell/") << "half a character is none";
    EXPECT_EQ(jni.localRefs(env), 0);
}

TEST_F(ProbeSystemTest, WithoutAFullNameTheBufferIsLeftAlone) {
    char buffer[16] = "before";
    const auto fails = [&] { return !getFullAppServerName(env, buffer, sizeof buffer); };
    EXPECT_TRUE(fails()) << "no class";
    probeSystem();
    EXPECT_TRUE(fails()) << "no method";
    fullName([](JNIEnv*, jobject, const FakeJni::Args&) { return FakeJni::of(jobject{nullptr}); });
    EXPECT_TRUE(fails()) << "null";
    fullName([this](JNIEnv* on, jobject, const FakeJni::Args&) {
        jni.throwNow(on, "java/lang/IllegalStateException");
        return FakeJni::none();
    });
    EXPECT_TRUE(fails()) << "thrown";
    EXPECT_FALSE(getFullAppServerName(nullptr, buffer, sizeof buffer));
    EXPECT_STREQ(buffer, "before");
    EXPECT_EQ(jni.pending(env), "");
    EXPECT_EQ(jni.localRefs(env), 0);
}

}  // namespace
