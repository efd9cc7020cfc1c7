#include "foundation/VelList.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "support/VelFixture.h"

namespace {

class VelListTest : public VelFixture {};

using Ints = std::vector<int>;

Ints contents(VelList<int>& list) {
    Ints out;
    const std::unique_ptr<VelListIter<int>> it(list.iterator());
    while (it->hasNext()) out.push_back(it->next());
    EXPECT_EQ(it->next(), 0);
    EXPECT_EQ(static_cast<long>(out.size()), list.size());
    return out;
}

void fill(VelList<int>& list, const Ints& elements) {
    for (const int element : elements) ASSERT_TRUE(list.append(element));
}

TEST_F(VelListTest, GivesBackInOrder) {
    VelList<int> list(true);
    fill(list, {3, 1, 2});
    EXPECT_EQ(list.pop(), 3);
    EXPECT_EQ(list.pop(), 1);
    fill(list, {9});
    EXPECT_EQ(list.pop(), 2);
    EXPECT_EQ(list.pop(), 9);
    EXPECT_EQ(list.pop(), 0);
    EXPECT_EQ(list.size(), 0);
    fill(list, {4});  // the tail was forgotten with the last element
    EXPECT_EQ(contents(list), Ints{4});
}

TEST_F(VelListTest, NullElementsAreRefused) {
    VelList<int*> list(false);
    EXPECT_FALSE(list.append(nullptr));
    EXPECT_FALSE(list.remove(nullptr));
    EXPECT_EQ(list.size(), 0);
}

struct RemoveCase {
    const char* name;
    Ints before;
    int gone;
    Ints after;
};

class VelListRemoveTest : public ::testing::TestWithParam<RemoveCase> {};

// Appending afterwards shows that the tail is right.
TEST_P(VelListRemoveTest, KeepsHeadAndTailRight) {
    VelList<int> list(false);
    fill(list, GetParam().before);
    EXPECT_TRUE(list.remove(GetParam().gone));
    EXPECT_FALSE(list.remove(99));
    Ints expected = GetParam().after;
    EXPECT_EQ(contents(list), expected);
    fill(list, {50});
    expected.push_back(50);
    EXPECT_EQ(contents(list), expected);
}

INSTANTIATE_TEST_SUITE_P(Places, VelListRemoveTest,
                         testing::Values(RemoveCase{"only", {1}, 1, {}},
                                         RemoveCase{"head", {1, 2, 3}, 1, {2, 3}},
                                         RemoveCase{"middle", {1, 2, 3}, 2, {1, 3}},
                                         RemoveCase{"tail", {1, 2, 3}, 3, {1, 2}},
                                         RemoveCase{"firstOfTwins", {1, 2, 3, 2}, 2, {1, 3, 2}}),
                         [](const auto& c) { return std::string(c.param.name); });

struct PrependCase {
    const char* name;
    Ints mine, other, joined;
};

class VelListPrependTest : public ::testing::TestWithParam<PrependCase> {};

TEST_P(VelListPrependTest, PutsTheOthersInFront) {
    VelList<int> mine(false);
    VelList<int> other(false);
    fill(mine, GetParam().mine);
    fill(other, GetParam().other);
    mine.prependAll(&other);
    EXPECT_EQ(contents(mine), GetParam().joined);
    EXPECT_EQ(contents(other), Ints());
    fill(other, {70});
    fill(mine, {80});
    Ints joined = GetParam().joined;
    joined.push_back(80);
    EXPECT_EQ(contents(mine), joined);
    EXPECT_EQ(contents(other), Ints{70});
}

INSTANTIATE_TEST_SUITE_P(Lists, VelListPrependTest,
                         testing::Values(PrependCase{"both", {1, 2}, {3, 4}, {3, 4, 1, 2}},
                                         PrependCase{"mineEmpty", {}, {3, 4}, {3, 4}},
                                         PrependCase{"otherEmpty", {1, 2}, {}, {1, 2}},
                                         PrependCase{"bothEmpty", {}, {}, {}}),
                         [](const auto& c) { return std::string(c.param.name); });

TEST_F(VelListTest, PrependLocksTheReceiverFirst) {
    VelList<int> mine(true);
    VelList<int> other(true);
    fill(mine, {1});
    fill(other, {2});
    const std::vector<std::string> names = vm.liveMonitors();
    ASSERT_EQ(names.size(), 2U);
    vm.recordCalls(true);
    mine.prependAll(&other);
    mine.prependAll(nullptr);
    mine.prependAll(&mine);
    EXPECT_EQ(vm.calls(), (std::vector<std::string>{"enter " + names[0], "enter " + names[1],
                                                    "exit " + names[1], "exit " + names[0]}));
    EXPECT_EQ(contents(mine), (Ints{2, 1}));
}

TEST_F(VelListTest, TextElementsAreRemovedByContent) {
    std::string one = "one";
    std::string two = "two";
    std::string alsoTwo = "two";
    VelList<char*> list(true, true);
    list.append(one.data());
    list.append(two.data());
    EXPECT_TRUE(list.remove(alsoTwo.data()));
    EXPECT_EQ(list.size(), 1);
    EXPECT_EQ(list.pop(), one.data());
}

TEST_F(VelListTest, AnElementMayLeaveWhileItIsVisited) {
    VelList<int> list(true);
    fill(list, {1, 2, 3, 4});
    list.enterLock();
    const std::unique_ptr<VelListIter<int>> it(list.iterator());
    while (it->hasNext())
        if (const int element = it->next(); element % 2 == 0) list.remove(element);
    list.exitLock();
    EXPECT_EQ(contents(list), (Ints{1, 3}));
}

TEST_F(VelListTest, LocksOnlyWhenAskedTo) {
    VelList<int> open(false);
    EXPECT_EQ(open.preInitLocks(), 0);
    EXPECT_EQ(open.enterLock(), 0);
    EXPECT_EQ(vm.counts().create, 0);
    VelList<int> locked(true);
    EXPECT_EQ(locked.preInitLocks(), 1);
    vm.resetCounts();
    fill(locked, {1});
    locked.pop();
    locked.remove(1);
    locked.clear();
    EXPECT_EQ(vm.counts().enter, 4);
    EXPECT_EQ(vm.counts().exit, 4);
}

// Before the VM interface is there, a list works as one thread's list.
TEST(VelListAlone, WorksWithoutAVm) {
    jvmpi.store(nullptr);
    VelList<int> list(true);
    fill(list, {1, 2});
    EXPECT_EQ(list.pop(), 1);
    EXPECT_EQ(list.enterLock(), 0);
}

TEST_F(VelListTest, ProducersAndADrainAgreeOnEveryElement) {
    constexpr int kProducers = 3;
    constexpr int kEach = 1000;
    VelList<int> list(true);
    std::vector<std::thread> producers;
    for (int p = 0; p < kProducers; ++p)
        producers.emplace_back([&list, p] {
            for (int i = 1; i <= kEach; ++i) list.append(p * kEach + i);
        });
    std::vector<int> last(kProducers, 0);
    for (int got = 0; got < kProducers * kEach;) {
        const int element = list.pop();
        if (element == 0) {
            std::this_thread::yield();
            continue;
        }
        ++got;
        const auto producer = static_cast<std::size_t>((element - 1) / kEach);
        EXPECT_EQ(element, static_cast<int>(producer) * kEach + ++last[producer]);
    }
    for (std::thread& producer : producers) producer.join();
    EXPECT_EQ(list.size(), 0);
}

}  // namespace
