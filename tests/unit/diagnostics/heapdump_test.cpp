#include "diagnostics/heapdump.h"

#include <clocale>
#include <cstdlib>
#include <fstream>
#include <string>

#include "agent/ProbeSystem.h"
#include "agent/velora.h"
#include "support/CaptureFixture.h"
#include "support/HeapDumpWriter.h"

namespace {

using Arguments = std::vector<std::string>;

struct XmxCase {
    const char* name;
    Arguments arguments;
    int megabytes;
};
class MaxHeap : public ::testing::TestWithParam<XmxCase> {};

TEST_P(MaxHeap, FromTheCommandLine) {
    EXPECT_EQ(maxHeapFromCommandLine(GetParam().arguments), GetParam().megabytes);
}
INSTANTIATE_TEST_SUITE_P(
    Arguments, MaxHeap,
    ::testing::Values(XmxCase{"megabytes", {"java", "-Xmx512m"}, 512},
                      XmxCase{"unitIsNotRead", {"java", "-Xmx4g"}, 4},
                      XmxCase{"lastWins", {"-Xmx512m", "-Xmx1024m", "-Xms9m"}, 1024},
                      XmxCase{"insideAnArgument", {"-J-Xmx64m"}, 64},
                      XmxCase{"missing", {"java", "Main"}, 128}, XmxCase{"zero", {"-Xmx0"}, 128},
                      XmxCase{"noNumber", {"-Xmxfoo"}, 128},
                      XmxCase{"lastWithoutNumberWins", {"-Xmx512m", "-Xmx"}, 128},
                      XmxCase{"beyondAnInt", {"-Xmx99999999999999999999"}, 2147483647}),
    [](const auto& info) { return std::string(info.param.name); });

class HeapDumpTest : public CaptureFixture {
protected:
    HeapDumpTest() {
        const auto memory = [this](const char* which) -> FakeJni::Body {
            return [this, which](JNIEnv* e, jobject, const FakeJni::Args&) {
                if (throwing == which) jni.throwNow(e, "java/lang/RuntimeException", which);
                return FakeJni::of(which == std::string("totalMemory") ? total : free);
            };
        };
        jni.defineClass("java/lang/Runtime")
            .staticMethod("getRuntime", "()Ljava/lang/Runtime;",
                          [this](JNIEnv*, jobject, const FakeJni::Args&) {
                              return FakeJni::of(jni.object("java/lang/Runtime"));
                          })
            .method("totalMemory", "()J", memory("totalMemory"))
            .method("freeMemory", "()J", memory("freeMemory"));
        jni.defineClass("java/lang/StringBuffer")
            .method("append", "(Ljava/lang/String;)Ljava/lang/StringBuffer;",
                    [this](JNIEnv* e, jobject self, const FakeJni::Args& args) {
                        if (throwing == "append") jni.throwNow(e, "java/lang/OutOfMemoryError");
                        appended += jni.text(args[0].l);
                        return FakeJni::of(self);
                    });
        vm.onRequest = [this](jint type, void* arg) { return answer(type, arg); };
        dump.instance(1, 0x100, 10);
    }

    jint answer(jint type, void* arg) {
        JVMPI_Event event{};
        event.event_type = type | JVMPI_REQUESTED_EVENT;
        event.env_id = env;
        std::vector<char> bytes(dump.bytes().begin(), dump.bytes().end());
        if (type == JVMPI_EVENT_HEAP_DUMP) {
            level = static_cast<JVMPI_HeapDumpArg*>(arg)->heap_dump_level;
            event.u.heap_dump.begin = bytes.data();
            event.u.heap_dump.end = bytes.data() + bytes.size();
        } else {
            event.u.class_load.class_name = "x/Y";
            event.u.class_load.class_id = static_cast<jobjectID>(arg);
        }
        vm.send(event);
        return JVMPI_SUCCESS;
    }
    jint snapshot(jobject buffer) {
        return Java_com_velora_command_heap_HeapUtil_getHeapSnapShotData(env, nullptr, buffer);
    }
    jint test() {
        return Java_com_velora_command_heap_HeapUtil_testHeapDumpEnvironmentNative(env, nullptr);
    }

    jlong total = 50000000;
    jlong free = 30000000;
    std::string throwing;
    std::string appended;
    int level = -1;
    HeapDumpWriter dump;
};

TEST_F(HeapDumpTest, SnapshotIsAppended) {
    set("internal.max.heapdump.size", "1");
    EXPECT_EQ(snapshot(jni.object("java/lang/StringBuffer")), 0);
    EXPECT_EQ(appended,
              "10,1\nx/Y,10,100.0,1,100.0\nprimitive[],0,0.0,0,0.0\nobject[],0,0.0,0,0.0\n");
    EXPECT_EQ(level, 2);
    EXPECT_EQ(heapDumpCount, 1U);
    EXPECT_EQ(ClzSumStr, nullptr);
    EXPECT_TRUE(qlog.logged("RequestEvent finishes (ret=0)"));
    EXPECT_TRUE(qlog.logged("Checking JVM memory: total = 50 free = 30 used = 20"));
    EXPECT_FALSE(doingHeapDump);
}

TEST_F(HeapDumpTest, SnapshotInstallsTheDispatcherWhenNoneIs) {
    set("internal.max.heapdump.size", "1");
    vm.interface()->NotifyEvent = nullptr;
    EXPECT_EQ(snapshot(jni.object("java/lang/StringBuffer")), 0);
    EXPECT_EQ(vm.interface()->NotifyEvent, EventDispatcher);
    EXPECT_FALSE(appended.empty());
}

TEST_F(HeapDumpTest, JavaThatCannotAppendIsTold) {
    set("internal.max.heapdump.size", "1");
    throwing = "append";
    EXPECT_EQ(snapshot(jni.object("java/lang/StringBuffer")), 3);
    EXPECT_EQ(jni.described().size(), 1U);
    EXPECT_EQ(snapshot(nullptr), 3);
    EXPECT_EQ(snapshot(jni.object("java/lang/Object")), 3);  // has no append
}

TEST_F(HeapDumpTest, WithoutADumpNothingIsAppended) {
    set("internal.max.heapdump.size", "1");
    for (const auto& [answer, result] : {std::pair{JVMPI_FAIL, 1}, {JVMPI_NOT_AVAILABLE, 4}}) {
        vm.onRequest = [answer](jint, void*) { return answer; };
        EXPECT_EQ(snapshot(jni.object("java/lang/StringBuffer")), result);
    }
    EXPECT_EQ(appended, "");
}

TEST_F(HeapDumpTest, ADumpWithoutMemoryForItsTextIsDone) {
    set("internal.max.heapdump.size", "1");
    vm.onRequest = [](jint, void*) { return JVMPI_SUCCESS; };
    EXPECT_EQ(snapshot(jni.object("java/lang/StringBuffer")), 0);
    EXPECT_EQ(appended, "");
}

TEST_F(HeapDumpTest, ASecondAnalysisMeanwhileIsRefused) {
    set("internal.max.heapdump.size", "1");
    jint second = -1;
    vm.onRequest = [&](jint, void*) -> jint {
        second = snapshot(jni.object("java/lang/StringBuffer"));
        return JVMPI_SUCCESS;
    };
    EXPECT_EQ(snapshot(jni.object("java/lang/StringBuffer")), 0);
    EXPECT_EQ(second, 2);
}

// 1024 x (megabytes x 1.6 x 1024), of the setting, the -Xmx number, or what is in use if that is
// more.
TEST_F(HeapDumpTest, BytesConsidered) {
    ProbeSystem::parseArguments({"java", "-Xmx1024m", "Main"});
    test();
    EXPECT_TRUE(qlog.logged("Maximum Heapdump size considered is 1717986918 (bytes)"));
    set("internal.max.heapdump.size", "10");
    test();
    EXPECT_TRUE(qlog.logged("Maximum Heapdump size considered is 33554432 (bytes)"));  // 20 in use
    free = 49000000;
    test();
    EXPECT_TRUE(qlog.logged("Maximum Heapdump size considered is 16777216 (bytes)"));
}

TEST_F(HeapDumpTest, RuntimeExceptionsAreClearedAndLeaveTheMaximum) {
    set("internal.max.heapdump.size", "10");
    for (const char* method : {"totalMemory", "freeMemory"}) {
        qlog.clearLines();
        throwing = method;
        EXPECT_EQ(test(), 0);
        EXPECT_TRUE(qlog.logged("considered is 16777216 (bytes)")) << method;
    }
    jni.fail("FindClass");
    EXPECT_EQ(test(), 0);
}

TEST_F(HeapDumpTest, AHeapTooLargeForThisMachineIsRefused) {
    set("internal.max.heapdump.size", "4000000");  // 4 TB
    EXPECT_EQ(test(), 1);
    EXPECT_EQ(snapshot(jni.object("java/lang/StringBuffer")), 1);
    EXPECT_EQ(level, -1);  // no dump was taken
}

TEST_F(HeapDumpTest, MemoryTest) {
    EXPECT_TRUE(memoryCanHold(4096, -1));
    EXPECT_TRUE(memoryCanHold(4096, 4096));
    EXPECT_FALSE(memoryCanHold(4097, 4096));
    EXPECT_FALSE(memoryCanHold(-1, -1));
    const auto meminfo = home / "meminfo";
    std::ofstream(meminfo) << "MemTotal:  9 kB\nMemFree:  8 kB\nMemAvailable:    7 kB\n";
    EXPECT_EQ(availableMemory(meminfo.c_str()), 7 * 1024);
    std::ofstream(meminfo) << "MemTotal:  9 kB\n";
    EXPECT_EQ(availableMemory(meminfo.c_str()), -1);
    EXPECT_EQ(availableMemory("/nowhere"), -1);
}

TEST_F(HeapDumpTest, AllocationsBecomeEvents) {
    Java_com_velora_probe_heap_HeapAnalysisRuntime_nativeHeapAllocationStart(env, nullptr, 5, 42,
                                                                             jni.string(u"a/B"));
    Java_com_velora_probe_heap_HeapAnalysisRuntime_nativeHeapAllocationEnd(env, nullptr, 5, 42,
                                                                           nullptr);
    const auto events = take();
    ASSERT_EQ(events.size(), 2U);
    EXPECT_EQ(events[0]->getSubType(), START);
    EXPECT_STREQ(dynamic_cast<HeapEvent&>(*events[0]).instantiated_class_name, "a/B");
    EXPECT_EQ(events[1]->getSubType(), END);
    closeGate();
    Java_com_velora_probe_heap_HeapAnalysisRuntime_nativeHeapAllocationStart(env, nullptr, 5, 42,
                                                                             nullptr);
    EXPECT_NE(takeOne<DroppedEvent>(), nullptr);
}

}  // namespace
