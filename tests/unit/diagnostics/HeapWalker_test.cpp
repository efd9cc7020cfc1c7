#include "diagnostics/HeapWalker.h"

#include <algorithm>
#include <cstdlib>
#include <map>
#include <memory>
#include <string>

#include "agent/ProbeMgr.h"
#include "diagnostics/HeapSummary.h"
#include "diagnostics/heapdump.h"
#include "support/CaptureFixture.h"
#include "support/HeapDumpWriter.h"

namespace {

struct KnownClass {
    std::string name;
    jint interfaces = 0;
    std::size_t statics = 0;
};

class HeapWalkerTest : public CaptureFixture {
protected:
    HeapWalkerTest() {
        vm.onRequest = [this](jint type, void* arg) -> jint {
            if (type != JVMPI_EVENT_CLASS_LOAD) return JVMPI_NOT_AVAILABLE;
            const auto id = reinterpret_cast<std::uintptr_t>(arg);
            ++requests[id];
            const auto known = classes.find(id);
            if (known == classes.end()) return JVMPI_FAIL;
            // What the dispatcher does while a dump is being processed.
            std::snprintf(class_load.class_name, sizeof class_load.class_name, "%s",
                          known->second.name.c_str());
            class_load.num_interfaces = known->second.interfaces;
            class_load.static_fields_size = known->second.statics;
            class_load.class_id = static_cast<jobjectID>(arg);
            return JVMPI_SUCCESS;
        };
        classes[0x100] = {"a/A"};
        classes[0x108] = {"b/B"};
    }

    std::string summary(const std::string& dump) {
        // A fresh block of the exact size, so that a read past its end is seen.
        const std::vector<char> exact(dump.begin(), dump.end());
        const std::unique_ptr<char, void (*)(void*)> text(
            readHeapDump(exact.data(), exact.data() + exact.size()), std::free);
        return text == nullptr ? "<null>" : text.get();
    }

    std::map<std::uintptr_t, KnownClass> classes;
    std::map<std::uintptr_t, int> requests;
};

TEST_F(HeapWalkerTest, SummaryOfASmallHeap) {
    HeapDumpWriter dump;
    dump.root(0xFF, 8).root(1, 16).root(2, 20).root(3, 20).root(4, 16).root(5, 8).root(6, 16);
    dump.root(7, 8);
    classes[0x110] = {"c/C", 2, 13};
    dump.classDump(0x110, 24, 2, 3, 13);
    dump.instance(1, 0x108, 60).instance(2, 0x100, 16).instance(3, 0x100, 4);
    dump.objectArray(4, 5).primitiveArray(5, 10, JVMPI_LONG, 8);
    dump.instance(6, 0x110, 0);
    EXPECT_EQ(summary(dump.bytes()),
              "160,6\n"
              "c/C,0,0.0,1,16.7\n"
              "a/A,20,12.5,2,33.3\n"
              "b/B,60,37.5,1,16.7\n"
              "primitive[],40,25.0,1,16.7\n"
              "object[],40,25.0,1,16.7\n");
    EXPECT_EQ(InstanceCount, 4U);
    EXPECT_EQ(InstanceSize, 80U);
    EXPECT_TRUE(qlog.logged("Class [c/C] size=24"));
    EXPECT_TRUE(qlog.logged("Instance count=4 size=80"));
    EXPECT_TRUE(qlog.logged("Object Array count=1 size=40"));
    EXPECT_TRUE(qlog.logged("Primitive Array count=1 size=40"));
    EXPECT_TRUE(qlog.logged("Total Objects count=6 size=160"));
}

TEST_F(HeapWalkerTest, EmptyHeapHasNoPercentages) {
    const std::string text = summary("");
    EXPECT_EQ(text.substr(0, text.find('\n')), "0,0");
    EXPECT_NE(text.find("primitive[],0,"), std::string::npos);
    EXPECT_NE(text.find("nan"), std::string::npos);
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 3);
}

TEST_F(HeapWalkerTest, NullDumpIsEmpty) {
    const std::unique_ptr<char, void (*)(void*)> text(readHeapDump(nullptr, nullptr), std::free);
    EXPECT_EQ(std::string(text.get()).substr(0, 4), "0,0\n");
}

struct ArrayCase {
    const char* name;
    int type;
    std::size_t width;      // in the dump
    std::uint32_t counted;  // per element
};

class PrimitiveArrays : public HeapWalkerTest, public ::testing::WithParamInterface<ArrayCase> {};

TEST_P(PrimitiveArrays, AreSteppedOverAndCounted) {
    HeapDumpWriter dump;
    dump.primitiveArray(1, 10, GetParam().type, GetParam().width);
    dump.instance(2, 0x100, 8);  // found only if the step was right
    summary(dump.bytes());
    EXPECT_EQ(PrimitiveArrayCount, 1U);
    EXPECT_EQ(PrimitiveArraySize, 10 * GetParam().counted);
    EXPECT_EQ(InstanceCount, 1U);
    EXPECT_EQ(InstanceSize, 8U);
}

INSTANTIATE_TEST_SUITE_P(Types, PrimitiveArrays,
                         ::testing::Values(ArrayCase{"boolean", 4, 1, 1},
                                           ArrayCase{"byte", 8, 1, 1}, ArrayCase{"char16", 5, 2, 2},
                                           ArrayCase{"short16", 9, 2, 2},
                                           ArrayCase{"float32", 6, 4, 4},
                                           ArrayCase{"int32", 10, 4, 4},
                                           ArrayCase{"doubleCountsHalf", 7, 8, 4},
                                           ArrayCase{"longCountsHalf", 11, 8, 4}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(HeapWalkerTest, UnknownElementTypeSkipsNothingAndCountsNothing) {
    HeapDumpWriter dump;
    dump.primitiveArray(1, 0xFFFFFFFF, 99, 0).instance(2, 0x100, 8);
    summary(dump.bytes());
    EXPECT_EQ(PrimitiveArrayCount, 0U);
    EXPECT_EQ(InstanceCount, 1U);
}

TEST_F(HeapWalkerTest, UnknownTagIsSkippedAsOneByte) {
    HeapDumpWriter dump;
    dump.tag(0x08).tag(0x99).instance(2, 0x100, 8);
    summary(dump.bytes());
    EXPECT_EQ(InstanceCount, 1U);
}

TEST_F(HeapWalkerTest, UnresolvedClassesConsumeNothingMore) {
    HeapDumpWriter dump;
    dump.tag(JVMPI_GC_CLASS_DUMP).id(0x999).instance(1, 0x100, 8);
    dump.tag(JVMPI_GC_INSTANCE_DUMP).id(2).id(0x998).put(std::uint32_t{50}).instance(3, 0x100, 8);
    const std::string text = summary(dump.bytes());
    EXPECT_EQ(InstanceCount, 3U);
    EXPECT_EQ(InstanceSize, 66U);
    EXPECT_NE(text.find("a/A,16,"), std::string::npos);
}

TEST_F(HeapWalkerTest, EachClassIsAskedForOnce) {
    HeapDumpWriter dump;
    for (int i = 0; i < 50; ++i) dump.instance(1, 0x100, 8).tag(0x20).id(0x999);
    summary(dump.bytes());
    EXPECT_EQ(requests[0x100], 1);
    EXPECT_EQ(requests[0x999], 1);
    summary(dump.bytes());  // cached for one analysis only
    EXPECT_EQ(requests[0x100], 2);
}

TEST_F(HeapWalkerTest, ARequestThatNeverReachedTheDispatcherResolvesNothing) {
    vm.onRequest = [](jint, void*) -> jint { return JVMPI_SUCCESS; };
    class_load.class_id = reinterpret_cast<jobjectID>(0x100);  // left over from an earlier request
    EXPECT_EQ(getClassData(reinterpret_cast<jobjectID>(0x100)), nullptr);
    EXPECT_EQ(getClassData(nullptr), nullptr);
    releaseHeapTables();
}

TEST_F(HeapWalkerTest, ClassesOfOneNameAreOneLine) {
    classes[0x108].name = "a/A";  // of another loader
    HeapDumpWriter dump;
    dump.instance(1, 0x100, 8).instance(2, 0x108, 8);
    EXPECT_NE(summary(dump.bytes()).find("a/A,16,100.0,2,100.0\n"), std::string::npos);
}

TEST_F(HeapWalkerTest, TableStopsAtTwentyThousandClasses) {
    HeapDumpWriter dump;
    for (std::uint64_t i = 0; i < kMaxClasses + 3; ++i) {
        const std::uint64_t id = 0x1000 + 8 * i;
        classes[id] = {"k/C" + std::to_string(i)};
        dump.instance(i, id, 1).instance(i, id, 1);
    }
    const std::string text = summary(dump.bytes());
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 1 + kMaxClasses + 2);
    EXPECT_EQ(text.substr(0, text.find('\n')), "40006,40006");
    EXPECT_EQ(text.find("k/C20000,"), std::string::npos);
    EXPECT_TRUE(qlog.logged("maxLength=196608"));  // the text outgrew its first buffer
}

// Every prefix of a dump with every kind of record: no read past the end, no hang, no wrong
// instance.
TEST_F(HeapWalkerTest, ADumpCutAnywhereIsReadUpToTheCut) {
    classes[0x110] = {"c/C", 1, 5};
    HeapDumpWriter dump;
    dump.root(0xFF, 8).root(2, 20).root(6, 16).classDump(0x110, 8, 1, 2, 5);
    dump.instance(1, 0x100, 6).objectArray(2, 2).primitiveArray(3, 3, JVMPI_INT, 4);
    dump.instance(4, 0x108, 7);
    const std::string whole = dump.bytes();
    for (std::size_t n = 0; n < whole.size(); ++n) {
        EXPECT_NE(summary(whole.substr(0, n)), "<null>") << n;
        EXPECT_LE(InstanceCount, 2U) << n;
    }
}

struct HostileCase {
    const char* name;
    HeapDumpWriter dump;
    std::uint32_t instances;  // that the damaged record itself counts
};
class HostileDumps : public HeapWalkerTest, public ::testing::WithParamInterface<HostileCase> {};

TEST_P(HostileDumps, EndTheWalkInsideTheDump) {
    classes[0x120] = {"x/Interfaces", -1, 0};
    classes[0x128] = {"x/Statics", 0, static_cast<std::size_t>(-1)};
    HeapDumpWriter dump = GetParam().dump;
    dump.instance(1, 0x100, 8);  // lies inside what the record claims: not reached
    EXPECT_NE(summary(dump.bytes()), "<null>");
    EXPECT_EQ(InstanceCount, GetParam().instances);
}

INSTANTIATE_TEST_SUITE_P(
    Records, HostileDumps,
    ::testing::Values(HostileCase{"instanceOfFourGigabytes",
                                  HeapDumpWriter().tag(0x21).id(1).id(0x100).put(0xFFFFFFFFU), 1},
                      HostileCase{"objectArrayOfFourGigaElements",
                                  HeapDumpWriter().tag(0x22).id(1).put(0xFFFFFFFFU).id(0), 0},
                      HostileCase{"longArrayOfFourGigaElements",
                                  HeapDumpWriter().tag(0x23).id(1).put(0xFFFFFFFFU).tag(JVMPI_LONG),
                                  0},
                      HostileCase{"classWithMinusOneInterfaces",
                                  HeapDumpWriter().classDump(0x120, 8, 0, 0, 0), 0},
                      HostileCase{"classWithAllTheStaticsThereCanBe",
                                  HeapDumpWriter().classDump(0x128, 8, 0, 0, 0), 0}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(HeapWalkerTest, SummaryWithoutMemoryIsNull) {
    const SummaryMemory original = summaryMemory;
    summaryMemory.allocate = [](std::size_t) -> void* { return nullptr; };
    EXPECT_EQ(summary(""), "<null>");
    EXPECT_TRUE(qlog.logged("malloc failed to create class summary string"));
    summaryMemory = original;

    HeapDumpWriter dump;
    for (std::uint64_t i = 0; i < 400; ++i) {
        classes[0x1000 + 8 * i] = {std::string(500, 'n') + std::to_string(i)};
        dump.instance(i, 0x1000 + 8 * i, 1);
    }
    summaryMemory.grow = [](void*, std::size_t) -> void* { return nullptr; };
    EXPECT_EQ(summary(dump.bytes()), "<null>");
    EXPECT_TRUE(qlog.logged("realloc failed to create class summary string"));
    summaryMemory = original;
}

}  // namespace
