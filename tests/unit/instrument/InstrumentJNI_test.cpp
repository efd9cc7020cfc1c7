// The class-load hook: which classes it touches, what it hands back, when it turns itself off, and
// that damaged bytes go back to the VM as they came.
#include "instrument/InstrumentJNI.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "agent/ProbeMgr.h"
#include "instrument/InstrumentConfig.h"
#include "support/ClassFileBuilder.h"
#include "support/TestHome.h"
#include "support/VelFixture.h"

namespace {

constexpr char kDefine[] = "(Ljava/lang/String;[BII)Ljava/lang/Class;";

void* takeMemory(unsigned int size) {
    return std::malloc(size);
}
void* haveNoMemory(unsigned int) {
    return nullptr;
}

class HookTest : public VelFixture {
protected:
    HookTest() { setenv("am.home", home_.path().c_str(), 1); }
    ~HookTest() override { unsetenv("am.home"); }

    void TearDown() override {
        instrumentConfig() = InstrumentConfig{};
        VelFixture::TearDown();
    }

    static DefineClassMethod target(const char* from) {
        return {from,
                static_cast<ULONG>(std::string_view(from).size()),
                "java/lang/ClassLoader",
                21,
                "defineClass",
                kDefine,
                {0, 1, 2, 3, 4},
                false};
    }
    static void configure() {
        InstrumentConfig& config = instrumentConfig();
        config.instrumentDefineClass = true;
        config.classLoaders = {target("org/acme/None"), target("org/acme/Loader")};
        config.proxies = {target("org/acme/Proxy")};
    }
    static ClassFileBuilder loaderClass(const char* name) {
        ClassFileBuilder builder;
        builder.name(name).methodref("java/lang/ClassLoader", "defineClass", kDefine);
        builder.utf8("Code");
        return builder;
    }

    enum Answer { kUnchanged, kRewritten };
    // Shows the hook a copy of exactly these bytes (asan sees its end) and checks what every answer
    // obeys.
    Answer show(Bytes bytes, void* (*allocator)(unsigned int) = takeMemory) {
        bytes.shrink_to_fit();
        JVMPI_Event event{};
        event.event_type = JVMPI_EVENT_CLASS_LOAD_HOOK;
        event.env_id = env;
        auto& hook = event.u.class_load_hook;
        hook.class_data = bytes.data();
        hook.class_data_len = static_cast<jint>(bytes.size());
        hook.malloc_f = allocator;
        const Bytes before = bytes;
        notifyClassLoadHookEvent(&event);
        EXPECT_EQ(bytes, before) << "the VM's own bytes are read only";
        if (hook.new_class_data == bytes.data()) {
            EXPECT_EQ(hook.new_class_data_len, hook.class_data_len);
            return kUnchanged;
        }
        rewritten.assign(hook.new_class_data, hook.new_class_data + hook.new_class_data_len);
        std::free(hook.new_class_data);
        return kRewritten;
    }

    Bytes rewritten;

private:
    TestHome home_;  // the start-up writes its MOD file there
};

TEST_F(HookTest, WithoutConfigurationNothingIsRewritten) {
    EXPECT_EQ(show(loaderClass("org/acme/Loader").build()), kUnchanged);
    EXPECT_EQ(classCount, 1);
}

TEST_F(HookTest, ATargetIsRewrittenOnce) {
    configure();
    const Bytes loader = loaderClass("org/acme/Loader").build();
    EXPECT_EQ(show(loader), kRewritten);
    EXPECT_GT(rewritten.size(), loader.size());
    EXPECT_TRUE(instrumentedClassLoader);
    EXPECT_TRUE(qlog.logged("Instrumenting class org/acme/Loader"));
    EXPECT_EQ(show(loader), kUnchanged) << "its list is settled";
}

TEST_F(HookTest, OnlyTheNamedClassIsATarget) {
    configure();
    for (const char* name : {"org/acme/Loade", "org/acme/LoaderX", "org/acme/loader"})
        EXPECT_EQ(show(loaderClass(name).build()), kUnchanged) << name;
    EXPECT_FALSE(instrumentedClassLoader);
}

TEST_F(HookTest, AfterBothListsTheHookTurnsItselfOff) {
    ASSERT_TRUE(qlog.lines().empty());
    configure();
    jvm_ptr = vm.vm();
    ProbeMgr::onLoadInitialize(vm.vm(), nullptr);
    ProbeMgr::enableClassLoadHook();
    EXPECT_EQ(show(loaderClass("org/acme/Proxy").build()), kRewritten);
    EXPECT_TRUE(vm.isEnabled(JVMPI_EVENT_CLASS_LOAD_HOOK));
    EXPECT_EQ(show(loaderClass("org/acme/Loader").build()), kRewritten);
    EXPECT_FALSE(vm.isEnabled(JVMPI_EVENT_CLASS_LOAD_HOOK));
    EXPECT_TRUE(qlog.logged("InstrumentJNI: turning off JVMPI ClassLoadHook"));
}

TEST_F(HookTest, OnlyOldClassFilesAreLookedAt) {
    struct Version {
        unsigned major, minor;
        Answer answer;
    };
    for (const Version& v :
         {Version{44, 0, kUnchanged}, Version{45, 3, kRewritten}, Version{46, 0, kRewritten},
          Version{47, 9, kRewritten}, Version{48, 0, kRewritten}, Version{48, 1, kUnchanged},
          Version{49, 0, kUnchanged}, Version{61, 0, kUnchanged}}) {
        configure();
        instrumentedClassLoader = false;
        EXPECT_EQ(show(loaderClass("org/acme/Loader").version(v.major, v.minor).build()), v.answer)
            << v.major << '.' << v.minor;
    }
    EXPECT_TRUE(qlog.messages(1182).empty());
}

TEST_F(HookTest, AWrongMagicIsReported) {
    Bytes bytes = loaderClass("org/acme/Loader").build();
    bytes[0] = 0;
    EXPECT_EQ(show(bytes), kUnchanged);
    ASSERT_EQ(qlog.messages(1181).size(), 1U);
    EXPECT_EQ(qlog.messages(1181)[0].text, "Bad class file magic FEBABE");
    EXPECT_EQ(show(hex("00000001")), kUnchanged);
    EXPECT_EQ(qlog.messages(1181).size(), 2U) << "four bytes are enough to tell";
}

TEST_F(HookTest, WithoutMemoryTheOldBytesAreHandedBack) {
    configure();
    EXPECT_EQ(show(loaderClass("org/acme/Loader").build(), haveNoMemory), kUnchanged);
    EXPECT_TRUE(qlog.logged("malloc_f failed"));
}

TEST_F(HookTest, ACutClassIsCorruptWhereverItIsCut) {
    configure();
    const Bytes whole = loaderClass("org/acme/Loader").build();
    for (std::size_t n = 0; n < whole.size(); ++n)
        ASSERT_EQ(show(Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(n))),
                  kUnchanged)
            << n;
    EXPECT_EQ(qlog.messages(1182).size() + qlog.messages(1181).size(), whole.size());
}

TEST_F(HookTest, TheTraceTellsAnUnknownTagFromACutPool) {
    Bytes bytes = hex("CAFEBABE 0000 002D 0002 01 0005 41");
    show(bytes);
    EXPECT_TRUE(qlog.logged("Constant pool ends within slot 1 at 0"));
    bytes[10] = 15;
    show(bytes);
    EXPECT_TRUE(qlog.logged("Unknown constant pool tag 15 1 0"));
}

// Every single bit turned over: no crash, no reading or writing outside (asan), and always an
// answer.
TEST_F(HookTest, ABitTurnedOverDoesNoHarm) {
    configure();
    ClassFileBuilder builder = loaderClass("org/acme/Loader");
    builder.method(1, 7, 8, 1, u2(9) + u4(3) + hex("010203"));
    const Bytes whole = builder.build();
    for (std::size_t bit = 0; bit < whole.size() * 8; ++bit) {
        Bytes damaged = whole;
        damaged[bit / 8] = static_cast<std::uint8_t>(damaged[bit / 8] ^ 1U << bit % 8);
        instrumentedClassLoader = false;
        configure();
        show(damaged);
    }
}

// The fuzzer's seeds, and whatever it once found: see tests/fuzz/classfile_fuzz_seeds.cpp.
TEST_F(HookTest, EveryKeptClassFileIsAnswered) {
    constexpr char kWide[] = "(JLjava/lang/String;D[BIIF)Ljava/lang/Class;";
    int shown = 0;
    for (const auto& entry : std::filesystem::directory_iterator(VELORA_GOLDEN_DIR "/classfile")) {
        std::ifstream file(entry.path(), std::ios::binary);
        const Bytes bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
        const std::string name = entry.path().filename();
        configure();
        DefineClassMethod wide = target("org/acme/L");
        wide.methodDescriptor = kWide;
        wide.parameterIndex = {0, 3, 6, 7, 8};
        instrumentConfig().classLoaders = {target("org/acme/L"), wide};
        instrumentConfig().proxies = {target("org/acme/P")};
        instrumentedClassLoader = false;
        instrumentedProxy = false;
        EXPECT_EQ(show(bytes) == kRewritten, name.rfind("rewritten-", 0) == 0) << name;
        ++shown;
    }
    EXPECT_GE(shown, 8);
}

TEST_F(HookTest, TheServersLauncherIsNoticed) {
    const auto seen = [this](const char* name) {
        instrumentationActive = false;
        show(loaderClass(name).build());
        return instrumentationActive.load();
    };
    ProbeMgr::onLoadInitialize(vm.vm(), nullptr);
    EXPECT_TRUE(seen("com/kor/zs/bootstrap/ZSLauncher"));
    EXPECT_TRUE(seen("weblogic/Server"));
    EXPECT_TRUE(seen("com/kor/tessar/lumen/instr/controller/BootIC"));
    EXPECT_FALSE(seen("weblogic/Servers"));
}

class DumpTest : public HookTest {
protected:
    void SetUp() override {
        folder = std::filesystem::temp_directory_path() / "velora-dump-XXXXXX";
        std::string name = folder.string();
        ASSERT_NE(mkdtemp(name.data()), nullptr);
        folder = name;
        instrumentConfig().dumpClasses = true;
        instrumentConfig().dumpPath = (folder / "x-").string();
    }
    void TearDown() override {
        std::filesystem::remove_all(folder);
        HookTest::TearDown();
    }
    Bytes fileBytes(const char* name) {
        std::ifstream file(folder / name, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    }
    std::filesystem::path folder;
};

TEST_F(DumpTest, ARewrittenClassIsWrittenUnderItsName) {
    configure();
    EXPECT_EQ(show(loaderClass("org/acme/Loader").build()), kRewritten);
    EXPECT_EQ(fileBytes("x-org.acme.Loader.class"), rewritten);
}

TEST_F(DumpTest, ACorruptClassIsWrittenAsBadClass) {
    Bytes damaged = loaderClass("org/acme/Loader").build();
    damaged[10] = 15;  // the first tag
    for (const Bytes& bytes : {damaged, hex("CAFEBABE 000300"), hex("CAFEBA")}) {
        show(bytes);
        EXPECT_EQ(fileBytes("x-BadClass.class"), bytes);
    }
    EXPECT_EQ(qlog.messages(1182).size(), 3U);
}

TEST_F(HookTest, InitDoneTurnsTheHookOffUnlessItHasWork) {
    ProbeMgr::onLoadInitialize(vm.vm(), nullptr);
    ProbeMgr::enableClassLoadHook();
    configure();
    notifyJVMInitDone(nullptr);
    EXPECT_TRUE(vm.isEnabled(JVMPI_EVENT_CLASS_LOAD_HOOK));
    instrumentConfig().instrumentDefineClass = false;
    notifyJVMInitDone(nullptr);
    EXPECT_FALSE(vm.isEnabled(JVMPI_EVENT_CLASS_LOAD_HOOK));
}

TEST(ClassIsExcludedTest, ByPrefix) {
    for (const char* name :
         {"java/lang/Object", "javax", "org.acme", "sunny", "com.velora.X", "com/velora/X"})
        EXPECT_TRUE(classIsExcluded(name)) << name;
    for (const char* name : {"com/acme", "jav", ""}) EXPECT_FALSE(classIsExcluded(name)) << name;
    EXPECT_FALSE(classIsExcluded(nullptr));
}

}  // namespace
