// What the command line's module flags mean for the Java side.
#include "launch/JavaSide.h"

#include <gtest/gtest.h>

namespace launch {
namespace {

struct ModulesCase {
    const char* name;
    std::string mainModule;
    std::vector<std::string> arguments;
    bool leavesOut;
};

class ModulesTest : public testing::TestWithParam<ModulesCase> {};

TEST_P(ModulesTest, LeavesOutInstrument) {
    EXPECT_EQ(leavesOutInstrument(moduleFlags(GetParam().mainModule, GetParam().arguments)),
              GetParam().leavesOut);
}

INSTANTIATE_TEST_SUITE_P(
    CommandLines, ModulesTest,
    testing::Values(
        ModulesCase{"aClassPath", "", {"java", "-cp", "x", "Main"}, false},
        ModulesCase{"aNamedModule", "m", {"java", "-m", "m/Main"}, true},
        ModulesCase{"added", "m", {"java", "--add-modules", "a,java.instrument", "-m", "m"}, false},
        ModulesCase{
            "addedByTheSecond", "m", {"--add-modules=a", "--add-modules=ALL-SYSTEM"}, false},
        ModulesCase{"anotherAdded", "m", {"--add-modules", "java.instrumental"}, true},
        ModulesCase{"limited", "", {"java", "--limit-modules", "java.base"}, true},
        ModulesCase{"limitedToIt", "", {"--limit-modules=java.base,java.instrument"}, false},
        ModulesCase{"limitedAndAdded",
                    "",
                    {"--limit-modules=java.base", "--add-modules=java.instrument"},
                    false},
        ModulesCase{"withoutItsValue", "", {"--limit-modules"}, false}),
    [](const auto& c) { return std::string(c.param.name); });

}  // namespace
}  // namespace launch
