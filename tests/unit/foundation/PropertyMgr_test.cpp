#include "foundation/PropertyMgr.h"

#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "support/TestHome.h"
#include "support/VelFixture.h"

namespace {

class PropertyMgrTest : public VelFixture {
protected:
    void TearDown() override {
        PropertyMgr::destroy();
        EXPECT_EQ(propMgr_.load(), nullptr);
        VelFixture::TearDown();
    }

    // A manager that has read this default file.
    PropertyMgr* load(const std::string& content) {
        home.write("etc/datacollector.properties", content);
        return PropertyMgr::getInstance();
    }

    TestHome home;
};

// --- which file ---------------------------------------------------------------------------------

struct FileCase {
    const char* name;
    const char *node, *server, *profile;
    std::vector<std::string> present;  // below etc/, each with which=<its own name>
    const char* used;                  // "": none
};

class PropertyFileTest : public PropertyMgrTest, public ::testing::WithParamInterface<FileCase> {};

TEST_P(PropertyFileTest, OneFileApplies) {
    const FileCase& c = GetParam();
    home.identify(c.node, c.server, c.profile);
    for (const std::string& file : c.present)
        home.write("etc/" + file, "which=" + file + "\nonly." + file + "=1\n");
    PropertyMgr* const properties = PropertyMgr::getInstance();
    EXPECT_EQ(std::string(properties->getStringProperty("which", "")), c.used);
    if (*c.used == '\0') {
        EXPECT_EQ(properties->getFileName(), nullptr);
        return;
    }
    EXPECT_EQ(std::string(properties->getFileName()), home.path("etc/" + std::string(c.used)));
    for (const std::string& file : c.present)  // nothing is merged
        EXPECT_EQ(properties->getProperty(("only." + file).c_str()) != nullptr, file == c.used);
}

INSTANTIATE_TEST_SUITE_P(
    Files, PropertyFileTest,
    testing::Values(
        FileCase{"specific",
                 "n1",
                 "s1",
                 "",
                 {"n1.s1.datacollector.properties", "datacollector.properties"},
                 "n1.s1.datacollector.properties"},
        FileCase{"withProfile",
                 "n1",
                 "s1",
                 "p1",
                 {"n1.s1.datacollector.properties", "n1.s1(p1).datacollector.properties",
                  "datacollector.properties"},
                 "n1.s1(p1).datacollector.properties"},
        FileCase{"profileFileMissing",
                 "n1",
                 "s1",
                 "p1",
                 {"n1.s1.datacollector.properties", "datacollector.properties"},
                 "datacollector.properties"},
        FileCase{
            "fallsBack", "n1", "s1", "", {"datacollector.properties"}, "datacollector.properties"},
        FileCase{"noNode",
                 "",
                 "s1",
                 "",
                 {".s1.datacollector.properties", "datacollector.properties"},
                 "datacollector.properties"},
        FileCase{"noServer",
                 "n1",
                 "",
                 "p1",
                 {"n1.(p1).datacollector.properties", "datacollector.properties"},
                 "datacollector.properties"},
        FileCase{"none", "n1", "s1", "", {}, ""}),
    [](const auto& c) { return std::string(c.param.name); });

TEST_F(PropertyMgrTest, SaysWhichFileItUses) {
    home.write("etc/n1.s1.datacollector.properties", "");
    PropertyMgr::getInstance();
    ASSERT_EQ(qlog.lines().size(), 1U);
    EXPECT_EQ(qlog.messages(1070).at(0).text,
              "Using property file " + home.path("etc/n1.s1.datacollector.properties"));
    EXPECT_EQ(qlog.messages(1070).at(0).level, QLG_LEVEL_INFO);
}

TEST_F(PropertyMgrTest, SaysThatItFallsBack) {
    load("");
    ASSERT_EQ(qlog.lines().size(), 2U);
    EXPECT_EQ(qlog.lines()[0].text,
              "Property file " + home.path("etc/n1.s1.datacollector.properties") + " not found");
    EXPECT_EQ(qlog.lines()[1].text,
              "Using default property file " + home.path("etc/datacollector.properties"));
    for (const auto& line : qlog.lines()) EXPECT_EQ(line.level, QLG_LEVEL_DEBUG_MIN);
}

TEST_F(PropertyMgrTest, SaysThatNothingIsThere) {
    PropertyMgr::getInstance();
    EXPECT_EQ(qlog.messages(1069).at(0).text,
              "Default property file " + home.path("etc/datacollector.properties") + " not found");
    EXPECT_EQ(qlog.messages(1069).at(0).level, QLG_LEVEL_ERROR);
    PropertyMgr::destroy();
    Identity::set("", "n1", "s1", "");
    EXPECT_EQ(PropertyMgr::getInstance()->getProperty("a"), nullptr);
    EXPECT_EQ(qlog.messages(1068).at(0).text,
              "am.home not found, failed to initialize the Property Manager");
}

// --- lines --------------------------------------------------------------------------------------

struct LineCase {
    const char* name;
    std::string line;
    const char* key;
    std::optional<std::string> value;
};

class PropertyLineTest : public PropertyMgrTest, public ::testing::WithParamInterface<LineCase> {};

TEST_P(PropertyLineTest, StoresItsValueOrNothing) {
    const char* const value = load(GetParam().line)->getProperty(GetParam().key);
    EXPECT_EQ(value == nullptr ? std::nullopt : std::optional<std::string>(value),
              GetParam().value);
}

INSTANTIATE_TEST_SUITE_P(
    Lines, PropertyLineTest,
    testing::Values(
        LineCase{"blanksAreTrimmed", " \t a = b \r\n", "a", "b"},
        LineCase{"signsAreNoBlanks", "!a=!b!\n", "!a", "!b!"},
        LineCase{"innerBlanksStay", "a b=c  d", "a b", "c  d"},
        LineCase{"noValue", "a=\n", "a", std::nullopt},
        LineCase{"noValueAfterTrimming", "a=   \n", "a", std::nullopt},
        LineCase{"noSign", "a\n", "a", std::nullopt},
        LineCase{"secondEqualsEndsTheValue", "a=b=c\n", "a", "b"},
        LineCase{"runsOfEqualsAreOne", "a===b\n", "a", "b"},
        LineCase{"leadingEqualsIsSkipped", "=a=b\n", "a", "b"},
        LineCase{"commentStoresNothing", "#a=b\n", "#a", std::nullopt},
        LineCase{"indentedComment", "   # a=b\n", "# a", std::nullopt},
        LineCase{"noCommentBehindAValue", "a=b # c\n", "a", "b # c"},
        LineCase{"lastLineWithoutEnd", "x=y\na=b", "a", "b"},
        LineCase{"laterWins", "a=1\na=2\n", "a", "2"},
        LineCase{"emptyLines", "\n\n  \na=b\n", "a", "b"},
        LineCase{"blankKey", "= =b\n", "b", std::nullopt},
        LineCase{"otherScriptsStay", "a=\xe6\x97\xa5\xff\n", "a", "\xe6\x97\xa5\xff"},
        LineCase{"unlistedKeys", "my.own.key=7\n", "my.own.key", "7"},
        LineCase{"longestLine", "a=" + std::string(12998, 'v'), "a", std::string(12998, 'v')},
        LineCase{"longerLineIsCut", "a=" + std::string(13000, 'v'), "a", std::string(12998, 'v')}),
    [](const auto& c) { return std::string(c.param.name); });

// --- typed access -------------------------------------------------------------------------------

TEST_F(PropertyMgrTest, NumbersAreReadAsFarAsTheyGo) {
    PropertyMgr* const p = load("i=12abc\nl=5000000000\nf=2.5x\nt=text\n");
    EXPECT_EQ(p->getIntProperty("i", 7), 12);
    EXPECT_EQ(p->getIntProperty("t", 7), 0);
    EXPECT_EQ(p->getIntProperty("none", 7), 7);
    EXPECT_EQ(p->getLongProperty("l", 7), 5000000000L);
    EXPECT_EQ(p->getLongProperty("none", 7), 7);
    EXPECT_EQ(p->getFloatProperty("f", 1.0), 2.5);
    EXPECT_EQ(p->getFloatProperty("none", 1.5), 1.5);
    EXPECT_STREQ(p->getStringProperty("t", "d"), "text");
    EXPECT_STREQ(p->getStringProperty("none", "d"), "d");
    EXPECT_EQ(p->getProperty(nullptr), nullptr);
}

TEST_F(PropertyMgrTest, NumbersAreStoredAsText) {
    PropertyMgr* const p = load("");
    p->putIntProperty("i", -5);
    p->putLongProperty("l", 4294967297L);
    p->putLongProperty("m", 2147483648L);
    p->putFloatProperty("f", 1.5);
    EXPECT_STREQ(p->getProperty("i"), "-5");
    EXPECT_STREQ(p->getProperty("l"), "1");
    EXPECT_STREQ(p->getProperty("m"), "-2147483648");
    EXPECT_STREQ(p->getProperty("f"), "1.500000");
    p->putProperty(nullptr, "x");
    p->putProperty("n", nullptr);
    EXPECT_EQ(p->getProperty("n"), nullptr);
}

TEST_F(PropertyMgrTest, ATextStaysValidAfterItsReplacement) {
    PropertyMgr* const p = load("a=old\n");
    const char* const old = p->getProperty("a");
    p->putProperty("a", "new");
    p->putProperty("a", old);  // its own earlier text
    EXPECT_STREQ(old, "old");
    EXPECT_STREQ(p->getProperty("a"), "old");
}

struct BoundCase {
    const char* name;
    const char* text;
    long result;
    const char* warning;  // "": none
};

class BoundedPropertyTest : public PropertyMgrTest,
                            public ::testing::WithParamInterface<BoundCase> {};

// Default 50, between 1 and 100.
TEST_P(BoundedPropertyTest, FallsBackToTheNearestSaneValue) {
    const PropertyMgr* const p = load(std::string("k=") + GetParam().text + "\n");
    qlog.clearLines();
    EXPECT_EQ(p->getBoundedProperty("k", 50, 1, 100), GetParam().result);
    EXPECT_EQ(p->getBoundedProperty("k", 50, 1, 100), GetParam().result);
    const auto warnings = qlog.messages(1101);
    ASSERT_EQ(warnings.size(), *GetParam().warning == '\0' ? 0U : 1U);
    if (warnings.empty()) return;
    EXPECT_EQ(warnings[0].text, GetParam().warning);
    EXPECT_EQ(warnings[0].level, QLG_LEVEL_WARN);
}

INSTANTIATE_TEST_SUITE_P(
    Values, BoundedPropertyTest,
    testing::Values(
        BoundCase{"inside", "7", 7, ""}, BoundCase{"lowest", "1", 1, ""},
        BoundCase{"highest", "100", 100, ""}, BoundCase{"absent", "", 50, ""},
        BoundCase{"zero", "0", 1, R"(Setting k has the unusable value "0"; using 1 instead)"},
        BoundCase{"above", "101", 100,
                  R"(Setting k has the unusable value "101"; using 100 instead)"},
        BoundCase{"beyondLong", "-99999999999999999999", 1,
                  R"(Setting k has the unusable value "-99999999999999999999"; using 1 instead)"},
        BoundCase{"noNumber", "ten", 50,
                  R"(Setting k has the unusable value "ten"; using 50 instead)"}),
    [](const auto& c) { return std::string(c.param.name); });

// --- listeners ----------------------------------------------------------------------------------

struct Listener : PropertyListener {
    explicit Listener(std::vector<std::string>* heard, std::string name)
        : heard(heard), name(std::move(name)) {}
    void propertyChanged(const char* key, const char* value) override {
        heard->push_back(name + ":" + key + "=" + value);
        if (then) then();
    }
    std::vector<std::string>* heard;
    std::string name;
    std::function<void()> then;
};

TEST_F(PropertyMgrTest, ListenersHearOfChangesToWhatExisted) {
    PropertyMgr* const p = load("a=1\n");
    p->start();
    std::vector<std::string> heard;
    Listener one(&heard, "one");
    Listener two(&heard, "two");
    EXPECT_FALSE(p->addPropertyListener(nullptr));
    EXPECT_TRUE(p->addPropertyListener(&one));
    EXPECT_TRUE(p->addPropertyListener(&two));
    one.then = [&] {
        EXPECT_EQ(vm.heldMonitors().size(), 1U);
        EXPECT_STREQ(p->getProperty("a"), "2");
    };
    p->updateProperty("new", "x");
    p->putProperty("a", "1.5");
    p->updateProperty("a", "2");
    EXPECT_EQ(heard, (std::vector<std::string>{"one:a=2", "two:a=2"}));
    EXPECT_STREQ(p->getProperty("new"), "x");
    EXPECT_TRUE(p->removePropertyListener(&one));
    EXPECT_FALSE(p->removePropertyListener(&one));
    heard.clear();
    p->updateProperty("new", "y");
    EXPECT_EQ(heard, std::vector<std::string>{"two:new=y"});
}

TEST_F(PropertyMgrTest, AListenerMayRemoveTheNextOne) {
    PropertyMgr* const p = load("a=1\n");
    std::vector<std::string> heard;
    Listener one(&heard, "one");
    Listener two(&heard, "two");
    p->addPropertyListener(&one);
    p->addPropertyListener(&two);
    one.then = [&] { p->removePropertyListener(&two); };
    p->updateProperty("a", "2");
    EXPECT_EQ(heard, std::vector<std::string>{"one:a=2"});
}

TEST_F(PropertyMgrTest, IsOneAndPublished) {
    jvmpi.store(nullptr);  // settings are read before the VM interface is there
    PropertyMgr* const p = load("a=1\n");
    EXPECT_STREQ(p->getProperty("a"), "1");
    EXPECT_EQ(PropertyMgr::getInstance(), p);
    EXPECT_EQ(propMgr_.load(), p);
    jvmpi.store(vm.interface());
    p->start();
    EXPECT_EQ(vm.counts().create, 1);
    EXPECT_TRUE(qlog.logged("PropertyMgr started"));
}

}  // namespace
