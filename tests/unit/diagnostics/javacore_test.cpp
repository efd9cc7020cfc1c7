#include "diagnostics/javacore.h"

#include <sys/stat.h>
#include <unistd.h>
#include <utime.h>

#include <climits>
#include <cstdlib>
#include <fstream>
#include <string>

#include "diagnostics/threaddump.h"
#include "support/CaptureFixture.h"

namespace {

namespace fs = std::filesystem;

class JavacoreTest : public CaptureFixture {
protected:
    ~JavacoreTest() override { setStdout(nullptr); }

    static void setStdout(const char* path) {
        delete[] probe_stdout;
        probe_stdout = Utils::cstrdup(path);
    }
    fs::path write(const std::string& name, const std::string& text) const {
        std::ofstream(home / name) << text;
        return home / name;
    }
    // Chooses the location file beforehand, as the first look-up does for the process.
    void setLocationFile(const fs::path& path) {
        std::snprintf(javacore_loc, sizeof javacore_loc, "%s", path.c_str());
        flag_core_loc = 1;
    }
    jobjectArray slots(jsize frames) {
        return env->NewObjectArray(frames * 3, jni.classRef("java/lang/String"), nullptr);
    }

    char name[kJavacoreNameSize] = "untouched";
};

// --- the entry points are inert
// -------------------------------------------------------------------

TEST_F(JavacoreTest, EntryPointsDoNothing) {
    write("javacore" + std::to_string(getpid()) + ".1.txt", "");
    set("internal.probe.javacoredir", home.c_str());
    setStdout("/tmp/out");
    long offset = 99;
    EXPECT_EQ(generateThreadDump(env, name, &offset), -1);
    EXPECT_STREQ(name, "untouched");
    EXPECT_EQ(offset, 99);
    EXPECT_TRUE(qlog.logged("No javacore is generated"));
    jobjectArray array = slots(2);
    EXPECT_EQ(readJavaCore(env, 1, array), 0);
    EXPECT_EQ(jni.texts(array), std::vector<std::string>(6, "<null>"));
    jni.returnToJava(env);
}

// --- parsing
// --------------------------------------------------------------------------------------

constexpr char kHeader[] = "\"main\" (TID:0x1, sys_thread_t:0x2A, state:R, native ID:0x7) prio=5\n";

struct ParseCase {
    const char* name;
    std::string text;
    std::vector<std::string> slots;  // of two frames
};
class Parsing : public JavacoreTest, public ::testing::WithParamInterface<ParseCase> {};

TEST_P(Parsing, FramesOfThread42) {
    const fs::path path = write("dump.txt", GetParam().text);
    std::FILE* const file = std::fopen(path.c_str(), "r");
    jobjectArray array = slots(2);
    std::vector<std::string> expected = GetParam().slots;
    const int frames = static_cast<int>(expected.size() / 3);
    expected.resize(6, "<null>");
    EXPECT_EQ(processJavaCore(env, file, 42, array), frames);
    EXPECT_EQ(jni.texts(array), expected);
    std::fclose(file);
    EXPECT_EQ(jni.localRefs(env), 1);  // the array
    jni.returnToJava(env);
}

const std::string kOther = "\"o\" (TID:0x9, sys_thread_t:0x2B, state:R)\n at wrong.One.call(X)\n";

INSTANTIATE_TEST_SUITE_P(
    Dumps, Parsing,
    ::testing::Values(
        ParseCase{"oneFrame",
                  kHeader + std::string("    at a.b.C.run(C.java:12)\n"),
                  {"a.b.C", "run", ""}},
        ParseCase{
            "lockedLinesAreSkipped",
            kHeader + std::string(" at a.B.one(B.java)\n - locked <0x1> (x)\n at a.B.two(N)\n"),
            {"a.B", "one", "", "a.B", "two", ""}},
        ParseCase{"anyOtherLineEnds",
                  kHeader + std::string(" at a.B.one()\n\n at a.B.two()\n"),
                  {"a.B", "one", ""}},
        ParseCase{"otherThreadsFirst", kOther + kHeader + " at r.R.go()\n", {"r.R", "go", ""}},
        ParseCase{"onlyOtherThreads", kOther, {}}, ParseCase{"empty", "", {}},
        ParseCase{"headerWithoutFrames", kHeader, {}},
        ParseCase{"noDot", kHeader + std::string(" at lonely(X)\n"), {"", "lonely", ""}},
        ParseCase{"noParenthesis", kHeader + std::string(" at a.B.c\n"), {"a.B", "c", ""}},
        ParseCase{"moreFramesThanSlots",
                  kHeader + std::string(" at a.A.a()\n at b.B.b()\n at c.C.c()\n"),
                  {"a.A", "a", "", "b.B", "b", ""}},
        ParseCase{"headerNeedsBothMarks", "\"x\" sys_thread_t:0x2A,\n at a.B.c()\n", {}},
        ParseCase{
            "idWithoutComma", "\"x\" (TID:1 sys_thread_t:0x2A\n at a.B.c()\n", {"a.B", "c", ""}},
        ParseCase{"idIsNoNumber", "\"x\" (TID:1 sys_thread_t:zz,\n at a.B.c()\n", {}},
        ParseCase{"lineLongerThanTheBuffer",
                  kHeader + (" at a." + std::string(5000, 'L') + ".m()\n"),
                  {"a", std::string(2047 - 6, 'L'), ""}}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(JavacoreTest, JavaWithoutMemoryEndsTheStack) {
    const fs::path path = write("dump.txt", kHeader + std::string(" at a.A.a()\n at b.B.b()\n"));
    std::FILE* const file = std::fopen(path.c_str(), "r");
    jobjectArray array = slots(2);
    jni.fail("NewStringUTF", 4);
    EXPECT_EQ(processJavaCore(env, file, 42, array), 1);
    std::fclose(file);
    jni.returnToJava(env);
}

// --- which file
// -----------------------------------------------------------------------------------

struct LocationCase {
    const char* name;
    std::string content;
    std::string expected;
};
class Locations : public JavacoreTest, public ::testing::WithParamInterface<LocationCase> {};

TEST_P(Locations, LastLineNamesTheDump) {
    setLocationFile(write("locations", GetParam().content));
    EXPECT_EQ(getJavacoreName_unix(name, 0), 0);
    EXPECT_EQ(name, GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Files, Locations,
    ::testing::Values(
        LocationCase{"afterTheSeparator", "Jan 1 : /d/javacore1.txt\n", "/d/javacore1.txt"},
        LocationCase{"lastLineWins", "a : /one\nb : /two\n", "/two"},
        LocationCase{"noLineEnd", "a : /one\nb : /two", "/two"},
        LocationCase{"noSeparator", "/plain/javacore.txt\n", "/plain/javacore.txt"},
        LocationCase{"onlyTheTailIsRead", std::string(3000, 'x') + "\nz : /tail\n", "/tail"},
        LocationCase{"longerThanTheTail", std::string(600, 'y'),
                     std::string(kJavacoreNameSize - 1, 'y')}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(JavacoreTest, WithoutALocationFileTheDirectoryIsSearched) {
    setLocationFile(home / "missing");
    const fs::path dumps = home / "dumps";
    fs::create_directories(dumps / "javacore_is_a_folder");
    std::ofstream(dumps / "other.txt") << "x";
    set("internal.probe.javacoredir", dumps.c_str());
    EXPECT_EQ(getJavacoreName_unix(name, 0), -1);
    EXPECT_TRUE(qlog.logged("Can not open location of Java core"));
    std::ofstream(dumps / "javacore7.1.txt") << "x";
    EXPECT_EQ(getJavacoreName_unix(name, 0), 0);
    EXPECT_EQ(name, (dumps / "javacore7.1.txt").string());
    EXPECT_EQ(getJavacoreName_unix(name, std::time(nullptr) + 1000), -1);  // too old
}

TEST_F(JavacoreTest, AnEmptyLocationFileMeansTheDirectoryToo) {
    setLocationFile(write("locations", ""));
    setenv("KOR_JAVACOREDIR", "/nowhere/at/all", 1);
    EXPECT_EQ(getJavacoreName_unix(name, 0), -1);
    EXPECT_TRUE(qlog.logged("javacore_location is empty"));
    EXPECT_TRUE(qlog.logged("javacoredir /nowhere/at/all not found"));
    EXPECT_EQ(getJavacoreName_unix_dir(name, 0, nullptr), -1);
    EXPECT_TRUE(qlog.logged("javacoredir is NULL, continue search current directory"));
}

struct VersionCase {
    const char* name;
    const char* version;
    const char* file;
};
class Versions : public JavacoreTest, public ::testing::WithParamInterface<VersionCase> {};

TEST_P(Versions, ChooseTheLocationFileOnce) {
    java_version = Utils::cstrdup(GetParam().version);
    getJavacoreName_unix(name, 0);
    EXPECT_STREQ(javacore_loc, GetParam().file);
    EXPECT_EQ(flag_core_loc, 1);
    delete[] java_version;
    java_version = Utils::cstrdup("9");
    getJavacoreName_unix(name, 0);
    EXPECT_STREQ(javacore_loc, GetParam().file);
    delete[] java_version;
    java_version = nullptr;
}
INSTANTIATE_TEST_SUITE_P(Texts, Versions,
                         ::testing::Values(VersionCase{"old", "1.3.1", "/tmp/javacore_locations"},
                                           VersionCase{"border", "1.4.1", "/tmp/dump_locations"},
                                           VersionCase{"plainTextOrder", "11",
                                                       "/tmp/dump_locations"},
                                           VersionCase{"unknown", nullptr, "/tmp/dump_locations"}),
                         [](const auto& info) { return std::string(info.param.name); });

// --- a whole file
// ---------------------------------------------------------------------------------

TEST_F(JavacoreTest, ProcessFileReadsAndDeletes) {
    std::string path =
        write("javacore77.1000.txt", kHeader + std::string(" at a.A.a()\n")).string();
    jobjectArray array = slots(2);
    EXPECT_EQ(processFile(env, path.data(), 77, 1001, 42, array), 0);  // older than asked for
    EXPECT_TRUE(qlog.logged("Not processing " + path));
    EXPECT_EQ(processFile(env, path.data(), 78, 1000, 42, array), 0);  // another process's
    EXPECT_TRUE(fs::exists(path));
    EXPECT_EQ(processFile(env, path.data(), 77, 1000, 42, array), 1);
    EXPECT_TRUE(qlog.logged("File time is 1000"));
    EXPECT_TRUE(qlog.logged("Searched thread dump in " + path + " for thread id 42"));
    EXPECT_FALSE(fs::exists(path));
    EXPECT_EQ(processFile(env, path.data(), 77, 1000, 42, array), 0);  // it is gone
    jni.returnToJava(env);
}

TEST_F(JavacoreTest, ProcessFileWithoutANameReadsTheStandardOutput) {
    const fs::path out = write("stdout.log", kOther);
    jobjectArray array = slots(1);
    EXPECT_EQ(processFile(env, nullptr, 1, 0, 42, array), 0);
    setStdout(out.c_str());
    EXPECT_EQ(processFile(env, nullptr, 1, 0, 42, array), 0);
    EXPECT_TRUE(qlog.logged("Searched thread dump in stdout for thread id 42"));
    EXPECT_TRUE(qlog.logged("Stack trace for thread id 42 was not found"));
    EXPECT_TRUE(fs::exists(out));
    jni.returnToJava(env);
}

// --- the server's standard output
// -----------------------------------------------------------------

TEST_F(JavacoreTest, StandardOutputOffset) {
    long offset = -7;
    setStdout(nullptr);
    EXPECT_EQ(getProbeStdoutOffset(name, &offset), -2);
    setStdout("");
    EXPECT_EQ(getProbeStdoutOffset(name, &offset), -2);
    EXPECT_EQ(qlog.messages(1088).size(), 2U);
    EXPECT_EQ(getProbeStdout(), nullptr);
    setStdout("/nowhere/out.log");
    EXPECT_EQ(getProbeStdoutOffset(name, &offset), -3);
    EXPECT_EQ(qlog.messages(1089).size(), 1U);
    const fs::path out = write("out.log", "0123456789");
    setStdout(out.c_str());
    EXPECT_EQ(getProbeStdoutOffset(name, &offset), 0);
    EXPECT_EQ(name, out.string());
    EXPECT_EQ(offset, 10);
    std::FILE* const file = getProbeStdout();
    EXPECT_EQ(seekToEOF(file), 10);
    std::fclose(file);
    EXPECT_EQ(seekToEOF(nullptr), -1);
    const std::string longPath(400, 'p');
    setStdout(longPath.c_str());
    EXPECT_EQ(getProbeStdoutOffset(name, &offset), -3);
    EXPECT_EQ(std::string(name).size(), kJavacoreNameSize - 1);
}

}  // namespace
