// The class and method tables: look-ups with their oddities, registration, unloads and sweeps.
#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "agent/velora.h"
#include "instrument/class.h"
#include "instrument/classfilter.h"
#include "support/VelFixture.h"

namespace {

jobjectID classId(std::uintptr_t id) {
    return reinterpret_cast<jobjectID>(id);
}
jmethodID methodId(std::uintptr_t id) {
    return reinterpret_cast<jmethodID>(id);
}

class TablesTest : public VelFixture {
protected:
    void SetUp() override {
        methodHashWaitInterval = 0;
        method_hash_size = 101;
        initMethodTableLock();
        initClassTableLock();
        initClassSequenceLock();
        createClassTable();
        createMethodTable();
    }
    void TearDown() override {
        deleteClassTable();
        deleteMethodTable();
        VelFixture::TearDown();
    }

    // A registered class with one method per given id.
    jclass_t* load(const char* name, std::uintptr_t id, std::vector<std::uintptr_t> ids = {}) {
        std::vector<JVMPI_Method> methods;
        for (const std::uintptr_t method : ids)
            methods.push_back(
                {const_cast<char*>("run"), const_cast<char*>("()V"), 1, 2, methodId(method)});
        JVMPI_Event event{};
        event.u.class_load.class_name = name;
        event.u.class_load.class_id = classId(id);
        event.u.class_load.num_methods = static_cast<jint>(methods.size());
        event.u.class_load.methods = methods.data();
        auto* const loaded = new jclass_t(&event);
        loaded->doRegister();
        return loaded;
    }
    // The look-ups never find the oldest class: something to stand at the chain's end.
    void loadOldest() { load("the/Oldest", 1); }

    // Records in the chain, dirty ones too, less the sentinel.
    static int nodes() {
        int count = 0;
        for (jclass_t* node = class_hash.load()[0]->next; node != nullptr; node = node->next)
            ++count;
        return count;
    }
};

TEST_F(TablesTest, AClassIsFoundByNameAndById) {
    loadOldest();
    jclass_t* const loaded = load("a/B", 0x100, {0x1000});
    EXPECT_EQ(getClassForName("a/B"), loaded);
    EXPECT_EQ(getClassEntry(classId(0x100)), loaded);
    EXPECT_EQ(getClassForName("a/C"), nullptr);
    EXPECT_EQ(getClassForName(nullptr), nullptr);
}

TEST_F(TablesTest, TheOldestClassIsNeverFound) {
    load("a/A", 0x100);
    EXPECT_EQ(getClassForName("a/A"), nullptr);
    jclass_t* const newer = load("b/B", 0x200);
    EXPECT_EQ(getClassForName("b/B"), newer);
    EXPECT_EQ(getClassForName("a/A"), nullptr);
    EXPECT_EQ(getClassEntry(classId(0x100)), nullptr);
}

TEST_F(TablesTest, ANullIdFindsTheSentinelOnceAClassIsThere) {
    EXPECT_EQ(getClassEntry(nullptr), nullptr);
    load("a/A", 0x100);
    EXPECT_EQ(getClassEntry(nullptr), class_hash.load()[0]);
}

TEST_F(TablesTest, TheNewestOfTwoClassesOfOneNameIsFound) {
    loadOldest();
    load("a/A", 0x100);
    jclass_t* const newer = load("a/A", 0x200);
    EXPECT_EQ(getClassForName("a/A"), newer);
}

TEST_F(TablesTest, ALoadEventBecomesARecord) {
    jclass_t* const first = load("a/B", 0x100, {0x1000, 0x1008});
    jclass_t* const second = load("com/velora/X", 0x200);
    EXPECT_STREQ(first->class_name, "a/B");
    EXPECT_EQ(first->sequenceID, 1U);
    EXPECT_EQ(second->sequenceID, 2U);
    EXPECT_EQ(getCurrentClassSequence(), 2U);
    EXPECT_EQ(first->delete_flag, 0);
    EXPECT_EQ(first->type, -1);
    EXPECT_EQ(first->num_methods, 2);
    EXPECT_EQ(first->methods[1].clazz, first);
    EXPECT_STREQ(first->methods[1].method_signature, "()V");
    EXPECT_EQ(first->is_filtered, kInstrumentClass);
    EXPECT_EQ(second->is_filtered, kFilteredOut);
    resetClassSequence();
    EXPECT_EQ(getNextClassSequence(), 1U);
}

TEST_F(TablesTest, ANegativeMethodCountIsNoMethod) {
    JVMPI_Event event{};
    JVMPI_Method method{};
    event.u.class_load.class_name = "a/A";
    event.u.class_load.num_methods = -3;
    event.u.class_load.methods = &method;
    const jclass_t loaded(&event);
    EXPECT_EQ(loaded.num_methods, 0);
    EXPECT_EQ(loaded.methods, nullptr);
}

TEST_F(TablesTest, AMethodIsFoundByItsIdUntilItsClassGoes) {
    jclass_t* const loaded = load("a/B", 0x100, {0x1000, 0x1000 + 8 * 101});  // one bucket
    EXPECT_EQ(getMethod(methodId(0x1000)), &loaded->methods[0]);
    EXPECT_EQ(getMethod(methodId(0x1000 + 8 * 101)), &loaded->methods[1]);
    EXPECT_EQ(getMethod(nullptr), nullptr);
    EXPECT_EQ(getMethod(methodId(0x9999)), nullptr);
    loaded->unRegisterMethods();
    EXPECT_EQ(getMethod(methodId(0x1000)), nullptr);
    EXPECT_FALSE(loaded->registered);
}

TEST_F(TablesTest, AnUnregisteredClassIsGoneFromBothTables) {
    loadOldest();
    jclass_t* const loaded = load("a/B", 0x100, {0x1000});
    delete loaded;  // unregisters first
    EXPECT_EQ(getClassForName("a/B"), nullptr);
    EXPECT_EQ(getMethod(methodId(0x1000)), nullptr);
}

TEST_F(TablesTest, OnlyTheLowHalfOfAMethodIdIsHashed) {
    EXPECT_EQ(getMethHashIndex(methodId(0x1000)), getMethHashIndex(methodId(0x7F00000001000)));
    EXPECT_EQ(getMethHashIndex(methodId(8)), 1U);
    EXPECT_EQ(getMethHashIndex(methodId(7)), 0U);
    EXPECT_EQ(getMethHashIndex(methodId(8 * 101)), 0U);
}

TEST_F(TablesTest, ACloneDescribesTheUnload) {
    jclass_t* const loaded = load("a/B", 0x100, {0x1000});
    jclass_t* const copy = loaded->clone();
    EXPECT_EQ(copy->delete_flag, 1);
    EXPECT_EQ(copy->class_id, classId(0x100));
    EXPECT_EQ(copy->sequenceID, loaded->sequenceID);
    EXPECT_EQ(copy->methods[0].method_id, methodId(0x1000));
    EXPECT_EQ(copy->methods[0].clazz, copy);
    EXPECT_NE(copy->class_name, loaded->class_name);
    delete copy;
    EXPECT_EQ(getMethod(methodId(0x1000)), &loaded->methods[0]) << "a clone is in no table";
}

TEST_F(TablesTest, UnloadsOnlyMarkUntilTheSweepIsDue) {
    CLASSULOAD_CLEANUP = 3;
    loadOldest();
    jclass_t* const classes[] = {load("a/A", 0x100, {0x1000}), load("b/B", 0x200, {0x2000}),
                                 load("c/C", 0x300, {0x3000})};
    for (int i = 0; i < 2; ++i) {
        classes[i]->markDirty();
        jclass_t::cleanupDirtyClasses();
    }
    EXPECT_EQ(nodes(), 4);
    EXPECT_EQ(getMethod(methodId(0x1000)), nullptr) << "invisible although still linked";
    EXPECT_EQ(cleanupCounter, 2U);
    classes[2]->markDirty();
    jclass_t::cleanupDirtyClasses();
    EXPECT_EQ(nodes(), 1);
    EXPECT_EQ(cleanupCounter, 0U);
    EXPECT_FALSE(useMethodLocks);
    EXPECT_FALSE(jclass_t::isCleanupInProgress_);
    EXPECT_TRUE(qlog.logged("cleaning up table done"));
}

// The swept methods lie in buckets of their own, where the sweep's search for null ids does not
// look: the chains must not lead into them afterwards.
TEST_F(TablesTest, ASweepLeavesNoChainThroughFreedMethods) {
    CLASSULOAD_CLEANUP = 1;
    loadOldest();
    jclass_t* const staying = load("s/S", 0x100, {8 * 5});
    jclass_t* const going = load("g/G", 0x200, {8 * 5 + 8 * 101});  // the same bucket, in front
    going->markDirty();
    jclass_t::cleanupDirtyClasses();
    ASSERT_EQ(method_hash.load()[5]->next, &staying->methods[0]);
    EXPECT_EQ(getMethod(methodId(8 * 5)), &staying->methods[0]);
    EXPECT_EQ(getMethod(methodId(8 * 5 + 8 * 101)), nullptr);
}

// A sweep on another thread takes a null class id to mean that the unloader has left the record.
TEST_F(TablesTest, TheClassIdGoesLast) {
    constexpr int kRounds = 50;
    std::vector<std::uintptr_t> many(5000);
    for (std::size_t i = 0; i < many.size(); ++i) many[i] = 0x1000 + 8 * i;
    loadOldest();
    jclass_t* const loaded = load("a/A", 0x100, many);
    std::atomic<jmethodID>& lastId = loaded->methods[loaded->num_methods - 1].method_id;
    std::atomic<int> watched{0};
    std::thread watcher([&] {
        for (int round = 1; round <= kRounds; ++round) {
            watched = round;
            while (loaded->class_id.load(std::memory_order_acquire) != nullptr) {
            }
            EXPECT_EQ(lastId.load(std::memory_order_relaxed), nullptr);
            lastId = methodId(8);
            loaded->class_id = classId(0x100);
        }
    });
    for (int round = 1; round <= kRounds; ++round) {
        while (watched != round) {
        }
        loaded->markDirty();
    }
    watcher.join();
}

TEST_F(TablesTest, AClassMarkedWhileASweepWaitsIsLeftForTheNextOne) {
    CLASSULOAD_CLEANUP = 1;
    methodHashWaitInterval = 100;
    loadOldest();
    jclass_t* const first = load("a/A", 0x100, {0x1000});
    jclass_t* const late = load("b/B", 0x200, {0x2000});
    const jmethod_t* const held = getMethod(methodId(0x2000));
    std::thread sweeper([first] { forgetClass(first); });
    while (!jclass_t::isCleanupInProgress_) std::this_thread::yield();
    late->markDirty();
    sweeper.join();
    ASSERT_EQ(nodes(), 2) << "the late one and the oldest";
    EXPECT_STREQ(held->method_name, "run") << "a reader may just have found it";
    jclass_t::cleanupDirtyClasses();
    EXPECT_EQ(nodes(), 1);
}

TEST_F(TablesTest, WithTheSweepSwitchedOffNothingIsCounted) {
    CLASSULOAD_CLEANUP = -1;
    loadOldest();
    load("a/A", 0x100)->markDirty();
    jclass_t::cleanupDirtyClasses();
    EXPECT_EQ(cleanupCounter, 0U);
}

TEST_F(TablesTest, ARetiredClassLivesUntilItsGraceIsOver) {
    methodHashWaitInterval = 3600000;
    loadOldest();
    jclass_t* const loaded = load("a/A", 0x100, {0x1000});
    jmethod_t* const seen = getMethod(methodId(0x1000));
    loaded->unregister();
    jclass_t::retire(loaded);
    jclass_t::retire(loaded);  // its unload was reported twice at once
    EXPECT_STREQ(seen->method_name, "run") << "a reader may still hold it";
    methodHashWaitInterval = 0;
    jclass_t::retire(new jclass_t);  // the next unload frees what is old enough (asan watches)
}

TEST_F(TablesTest, TheFilterIsAppliedAgainToWhatIsLoaded) {
    loadOldest();
    jclass_t* const loaded = load("org/acme/A", 0x100);
    char entry[] = "org/acme*";
    char* excluded[] = {entry, nullptr};
    publishFilterLists(nullptr, excluded);
    EXPECT_EQ(loaded->is_filtered, kInstrumentClass);
    reapplyFilter();
    EXPECT_EQ(loaded->is_filtered, kFilteredOut);
    publishFilterLists(nullptr, nullptr);
}

TEST_F(TablesTest, TablesThatDoNotExistAnswerNothing) {
    deleteClassTable();
    deleteMethodTable();
    EXPECT_EQ(getClassForName("a/A"), nullptr);
    EXPECT_EQ(getMethod(methodId(8)), nullptr);
    reapplyFilter();
    jclass_t lonely;
    lonely.allocateMethods(1);
    lonely.doRegister();
    lonely.unregister();
}

class SeparatorTest : public ::testing::Test {};

TEST_F(SeparatorTest, TheFirstNameDecidesForDots) {
    char first[] = "a.b.C";
    char second[] = "x/y.Z";
    translateSeparator(first);
    translateSeparator(second);
    EXPECT_STREQ(first, "a/b/C");
    EXPECT_STREQ(second, "x/y/Z");
}

TEST_F(SeparatorTest, TheFirstNameDecidesForSlashes) {
    char first[] = "int";
    char second[] = "a.b.C";
    translateSeparator(nullptr);
    translateSeparator(first);
    translateSeparator(second);
    EXPECT_STREQ(second, "a.b.C");
}

// Several threads load, look up and unload at once, without the deferred sweep. What a reader finds
// is what was registered, and in the end nothing is left. (Readers hold the stripe locks here, as
// with internal.use.method.monitors: only then is freeing ordered after reading in a way a race
// detector sees.)
TEST_F(TablesTest, LoadersReadersAndUnloadersShareTheTables) {
    CLASSULOAD_CLEANUP = -1;
    useMethodLocks = true;
    loadOldest();
    std::atomic<bool> stop{false};
    std::vector<std::thread> threads;
    for (std::uintptr_t worker = 1; worker <= 3; ++worker) {
        threads.emplace_back([this, worker] {
            for (std::uintptr_t round = 0; round < 200; ++round) {
                const std::uintptr_t id = worker << 20 | (round + 1) << 4;
                jclass_t* const loaded = load("a/A", id, {id, id + 8});
                EXPECT_EQ(getMethod(methodId(id + 8)), &loaded->methods[1]);
                EXPECT_EQ(getClassEntry(classId(id)), loaded);
                loaded->unregister();
                jclass_t::retire(loaded);
            }
        });
    }
    std::thread reader([&stop] {
        for (std::uintptr_t id = 16; !stop; id += 8) {
            getMethod(methodId(1U << 20 | id % 4096));
            getClassForName("b/B");
            reapplyFilter();
        }
    });
    for (std::thread& thread : threads) thread.join();
    stop = true;
    reader.join();
    EXPECT_EQ(class_hash.load()[0]->next->next, nullptr);
}

// Sweeps among unloaders, a loader and look-ups of classes, for the race detectors: while a sweep
// waits the other unloaders mark, and their classes must not be freed by it. (No look-up of
// methods: an unlocked one is protected by the length of the wait, which no detector understands.)
TEST_F(TablesTest, SweepsRunAmongLoadersUnloadersAndLookUps) {
    CLASSULOAD_CLEANUP = 3;
    methodHashWaitInterval = 1;
    loadOldest();
    std::uintptr_t next = 0x1000;  // ids, for classes and methods alike
    const auto loadLarge = [&] {
        std::vector<std::uintptr_t> ids(100);
        for (std::uintptr_t& id : ids) id = next += 8;
        return load("a/A", next += 8, ids);
    };
    std::vector<jclass_t*> going[3];
    for (int i = 0; i < 60; ++i)
        for (auto& classes : going) classes.push_back(loadLarge());
    std::atomic<bool> go{false};
    std::atomic<bool> stop{false};
    std::vector<std::thread> unloaders;
    for (auto& classes : going)
        unloaders.emplace_back([&go, &classes] {
            while (!go) std::this_thread::yield();
            for (auto newest = classes.rbegin(); newest != classes.rend(); ++newest)
                forgetClass(*newest);
        });
    std::thread loader([this] {
        for (std::uintptr_t i = 1; i <= 100; ++i) load("c/C", i << 40, {i << 40});
    });
    std::thread lookUps([&stop] {
        while (!stop) {
            getClassEntry(classId(0x1000));
            getClassForName("b/B");
            reapplyFilter();
        }
    });
    go = true;
    for (std::thread& thread : unloaders) thread.join();
    loader.join();
    stop = true;
    lookUps.join();
    EXPECT_LT(cleanupCounter, 3U);
    EXPECT_LE(nodes(), 101 + static_cast<int>(cleanupCounter)) << "what was counted was swept";
}

// Without locks: readers meet registrations and marks, not removals.
TEST_F(TablesTest, UnlockedReadersSeeWholeRecords) {
    CLASSULOAD_CLEANUP = 1000000;
    loadOldest();
    std::atomic<bool> stop{false};
    std::thread reader([&stop] {
        while (!stop) {
            for (std::uintptr_t id = 1; id <= 300; ++id) {
                const jmethod_t* const method = getMethod(methodId(id << 4));
                if (method == nullptr) continue;
                EXPECT_STREQ(method->method_name, "run");
            }
        }
    });
    for (std::uintptr_t id = 1; id <= 300; ++id) {
        jclass_t* const loaded = load("a/A", id << 4, {id << 4});
        if (id % 3 == 0) {
            loaded->markDirty();
            jclass_t::cleanupDirtyClasses();
        }
    }
    stop = true;
    reader.join();
}

struct FilterCase {
    const char* rule;
    const char* name;
    int expected;
};

class ClassFilterTest : public ::testing::TestWithParam<FilterCase> {
protected:
    void SetUp() override { publishFilterLists(include_, exclude_); }
    void TearDown() override { publishFilterLists(nullptr, nullptr); }

    static inline char all_[] = "com/velora/*", acme_[] = "com/acme*", sub_[] = "com/acme/sub/*",
                       org_[] = "org/*";
    static inline char* include_[] = {all_, sub_, nullptr};
    static inline char* exclude_[] = {acme_, org_, nullptr};
};

TEST_P(ClassFilterTest, Decides) {
    EXPECT_EQ(isClassFiltered(GetParam().name), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Names, ClassFilterTest,
    testing::Values(FilterCase{"nullIsTraced", nullptr, 0},
                    FilterCase{"ownPackageNeverEvenIfIncluded", "com/velora/X", 1},
                    FilterCase{"ownPackageIsAWholeName", "com/velorax/X", 0},
                    FilterCase{"internalList", "com/kor/zs/runtime/Server", 2},
                    FilterCase{"internalListIsExact", "com/kor/zs/runtime/ServerX", 0},
                    FilterCase{"excludedPrefix", "com/acmeX/Y", 1},
                    FilterCase{"excludedPrefixItself", "com/acme", 1},
                    FilterCase{"includeComesFirst", "com/acme/sub/A", 0},
                    FilterCase{"secondExclude", "org/A", 1}, FilterCase{"inNoList", "net/A", 0}),
    [](const auto& info) { return std::string(info.param.rule); });

TEST(ClassFilterLists, AnEntryOfOneCharacterMatchesEveryName) {
    char star[] = "*";
    char* everything[] = {star, nullptr};
    publishFilterLists(nullptr, everything);
    EXPECT_EQ(isClassFiltered("x"), kFilteredOut);
    publishFilterLists(nullptr, nullptr);
}

}  // namespace
