// The configuration file: what its lines mean and what is refused.
#include "instrument/InstrumentConfig.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <ostream>
#include <string>

#include "support/VelFixture.h"

namespace {

#define KEY "com.kor.tessar.ruka.jvmpi."
const std::filesystem::path kShipped =
    std::filesystem::path(VELORA_GOLDEN_DIR).parent_path().parent_path() /
    "etc/instrumentation.properties";
constexpr char kTarget[] =
    "org.acme.L java/lang/ClassLoader defineClass (Ljava/lang/String;[BII)Ljava/lang/Class; "
    "0,1,2,3,4";

class InstrumentConfigTest : public VelFixture {
protected:
    void TearDown() override {
        std::filesystem::remove(path_);
        instrumentConfig() = InstrumentConfig{};
        VelFixture::TearDown();
    }
    bool load(const std::string& text) {
        std::ofstream(path_) << text;
        return getConfig(path_.c_str());
    }
    std::string path_ = std::filesystem::temp_directory_path() /
                        ("velora-instr-" + std::to_string(getpid()) + ".properties");
};

TEST_F(InstrumentConfigTest, NoFileConfiguresNothing) {
    EXPECT_TRUE(getConfig(path_.c_str()));
    EXPECT_TRUE(getConfig((path_ + "/below").c_str()));
    EXPECT_FALSE(instrumentConfig().instrumentDefineClass);
}

TEST_F(InstrumentConfigTest, ReadsEveryKey) {
    ASSERT_TRUE(load("# comment\n\n" KEY "instrumentDefineClass = yes\r\n" KEY
                     "dumpClasses=YES\n" KEY "dumpPath = /tmp/d/x-\n" KEY "classLoader.2 = " +
                     std::string(kTarget) + "\n" KEY "proxy = " + kTarget +
                     "\n" KEY
                     "classLoader.1=a.B c.D e ([BJIILa/L;Ljava/lang/String;)La/B; 5,6,0,3,4"));
    const InstrumentConfig& config = instrumentConfig();
    EXPECT_TRUE(config.instrumentDefineClass);
    EXPECT_TRUE(config.dumpClasses);
    EXPECT_EQ(config.dumpPath, "/tmp/d/x-");
    ASSERT_EQ(config.classLoaders.size(), 2U);
    ASSERT_EQ(config.proxies.size(), 1U);
    const DefineClassMethod& first = config.classLoaders[0];
    EXPECT_STREQ(first.fromClassName, "org/acme/L");
    EXPECT_EQ(first.fromClassNameLength, 10U);
    EXPECT_STREQ(first.toClassName, "java/lang/ClassLoader");
    EXPECT_EQ(first.toClassNameLength, 21U);
    EXPECT_STREQ(first.methodName, "defineClass");
    EXPECT_STREQ(first.methodDescriptor, "(Ljava/lang/String;[BII)Ljava/lang/Class;");
    EXPECT_EQ(first.parameterIndex.length, 4);
    EXPECT_FALSE(first.instrumented);
    EXPECT_STREQ(config.classLoaders[1].fromClassName, "a/B") << "file order, whatever the number";
}

TEST_F(InstrumentConfigTest, TheShippedFileConfiguresNothing) {
    ASSERT_TRUE(std::filesystem::exists(kShipped));
    EXPECT_TRUE(getConfig(kShipped.c_str()));
    EXPECT_FALSE(instrumentConfig().instrumentDefineClass);
    EXPECT_TRUE(instrumentConfig().classLoaders.empty());
}

// The example in the shipped file works when its comment marks are taken away.
TEST_F(InstrumentConfigTest, TheShippedExampleIsUnderstood) {
    std::ifstream shipped(kShipped);
    std::string text;
    for (std::string line; std::getline(shipped, line);)
        text += (line.rfind("#com.kor", 0) == 0 ? line.substr(1) : line) + "\n";
    ASSERT_TRUE(load(text));
    EXPECT_TRUE(instrumentConfig().instrumentDefineClass);
    ASSERT_EQ(instrumentConfig().classLoaders.size(), 1U);
    EXPECT_STREQ(instrumentConfig().classLoaders[0].toClassName, "org/acme/server/AppLoader");
}

struct BadLine {
    const char* rule;
    const char* line;
    const char* reason;
};
void PrintTo(const BadLine& bad, std::ostream* out) {
    *out << bad.rule;
}

class BadConfigTest : public InstrumentConfigTest, public ::testing::WithParamInterface<BadLine> {};

TEST_P(BadConfigTest, IsRefusedWithItsLine) {
    EXPECT_FALSE(load(std::string(KEY "instrumentDefineClass = YES\n") + GetParam().line + "\n"));
    EXPECT_FALSE(instrumentConfig().instrumentDefineClass) << "nothing of it is in force";
    ASSERT_EQ(qlog.messages(1183).size(), 1U);
    const std::string text = qlog.messages(1183)[0].text;
    EXPECT_NE(text.find(path_ + ", line 2: "), std::string::npos) << text;
    EXPECT_NE(text.find(GetParam().reason), std::string::npos) << text;
}

INSTANTIATE_TEST_SUITE_P(
    Lines, BadConfigTest,
    testing::Values(
        BadLine{"noEquals", "hello", "no \"=\""}, BadLine{"foreignKey", "a.b = 1", "not known"},
        BadLine{"misspelt", KEY "dumpClass = YES", "not known"},
        BadLine{"emptySuffix", KEY "classLoader. = x", "not known"},
        BadLine{"neitherYesNorNo", KEY "dumpClasses = true", "YES or NO"},
        BadLine{"fourWords", KEY "proxy = a b c (II)La;", "a target is"},
        BadLine{"sixWords", KEY "proxy = a b c ()La; 0,0,0,0,0 x", "a target is"},
        BadLine{"fourSlots", KEY "proxy = a b c ([BII)La; 0,0,1,2", "five slots"},
        BadLine{"noNumber", KEY "proxy = a b c ([BII)La; 0,x,1,2,3", "no local slot"},
        BadLine{"tooLarge", KEY "proxy = a b c ([BII)La; 0,0,1,2,255", "no local slot"},
        BadLine{"negative", KEY "proxy = a b c ([BII)La; 0,0,1,2,-3", "no local slot"},
        BadLine{"noDescriptor", KEY "proxy = a b c [BII 0,0,1,2,3", "no method descriptor"},
        BadLine{"returnsNothing", KEY "proxy = a b c ([BII)V 0,0,1,2,3", "must return an object"},
        BadLine{"intAsArray", KEY "proxy = a b c ([BII)La; 0,0,2,1,3", "do not fit"},
        BadLine{"anObjectAsName", KEY "proxy = a b c (Ljava/lang/Object;[BII)La; 0,1,2,3,4",
                "do not fit"},
        BadLine{"aStringAsLoader", KEY "proxy = a b c (Ljava/lang/String;[BII)La; 1,1,2,3,4",
                "do not fit"},
        BadLine{"oneSlotForTwo", KEY "proxy = a b c (Ljava/lang/String;[BII)La; 0,1,2,3,3",
                "do not fit"},
        BadLine{"otherArray", KEY "proxy = a b c (Ljava/lang/String;[CII)La; 0,1,2,3,4",
                "do not fit"},
        BadLine{"intoASecondHalf", KEY "proxy = a b c (J[BII)La; 0,2,3,4,5", "do not fit"}),
    [](const auto& info) { return std::string(info.param.rule); });

}  // namespace
