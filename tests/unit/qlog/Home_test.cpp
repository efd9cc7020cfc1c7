// What the home ships: the configuration that the collector relies on, the catalogues, the texts.
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <sstream>

#include "QlogFixture.h"
#include "foundation/Messages.h"
#include "qlog/qmsg.h"

namespace {

const std::string kHome = VELORA_HOME_DIR;

constexpr Message kMessages[] = {
#define LIST_MESSAGE(name, number, level, text) {number, MessageLevel::level, text},
    VEL_MESSAGES(LIST_MESSAGE)
#undef LIST_MESSAGE
};

class HomeTest : public QlogFixture {
protected:
    // "" where the catalogue has no text.
    static std::string catalogueText(int number) {
        char text[4096] = "";
        const int length = qmsgi_lookup("velprobeMessages", 1, number, text, sizeof text);
        return length >= 0 ? text : "";
    }

    WithEnvironment nlspath_{"NLSPATH", (kHome + "/msg/%L/%N.cat").c_str()};
    WithEnvironment all_{"LC_ALL", nullptr};
    WithEnvironment messages_{"LC_MESSAGES", nullptr};
};

TEST_F(HomeTest, TheConfigurationHasTheCollectorsObjects) {
    const WithEnvironment root("QLOG_COMMON_DIR", "/srv/common");
    ASSERT_EQ(QlgOpenToolkit((kHome + "/etc/vel-qlog.properties").c_str()), 1);
    const QlgHandle logger = QlgGetObject("logger.dc.msg", nullptr);
    const QlgHandle tracer = QlgGetObject("logger.dc.trace", nullptr);
    ASSERT_NE(logger, nullptr);
    ASSERT_NE(tracer, nullptr);
    EXPECT_TRUE(QlgIsLoggable(logger, QLG_LEVEL_INFO));
    EXPECT_FALSE(QlgIsLoggable(tracer, QLG_LEVEL_DEBUG_MIN));
    EXPECT_EQ(property(QlgGetObject("handler.file.dc.msg", "qlg_filehandler"), "fileName"),
              "dc-message.log");
    EXPECT_EQ(property(QlgGetObject("handler.file.dc.trace", "qlg_filehandler"), "fileName"),
              "dc-trace.log");
    const QlgHandle ffdc = QlgGetObject("handler.ffdc.dc", nullptr);
    EXPECT_EQ(property(ffdc, "baseDir"), "FFDC");
    EXPECT_EQ(property(ffdc, "files").find("/srv/common/VEL/logs/dc-message.log,"), 0u);
}

// As the collector does it, from the home to a line in the file.
TEST_F(HomeTest, TheConfigurationWritesWhereItIsTold) {
    ASSERT_EQ(QlgOpenToolkit((kHome + "/etc/vel-qlog.properties").c_str()), 1);
    const QlgHandle logger = QlgGetObject("logger.dc.msg", nullptr);
    const QlgHandle tracer = QlgGetObject("logger.dc.trace", nullptr);
    QlgSetObjProp(QlgGetObject("handler.file.dc.msg", nullptr), "fileName", path("m").c_str());
    QlgSetObjProp(QlgGetObject("handler.file.dc.trace", nullptr), "fileName", path("t").c_str());
    QlgLogWarn(logger, "velprobeMessages", 1, 1045, "ThreadData creation failed", 0);
    QlgSetObjPropInt(tracer, "level", QLG_LEVEL_DEBUG_MID);
    QlgLogDebugMid(tracer, "a.cpp", "f()", 1, "entry", 0);
    EXPECT_EQ(records("m"), std::vector<std::string>{"WARN  1045 ThreadData creation failed"});
    EXPECT_EQ(records("t"), std::vector<std::string>{"MID   a.cpp:1 f() entry"});
}

TEST_F(HomeTest, TheEnglishCataloguesSayWhatTheCodeSays) {
    std::map<int, std::set<std::string>> texts;
    for (const auto& message : kMessages) texts[message.number].insert(message.text);
    for (const char* language : {"C", "en_US.UTF-8", "en_GB"}) {
        const WithEnvironment lang("LANG", language);
        qmsgi_forget();
        for (const auto& [number, all] : texts) {
            // Two texts under one number: a translation could not stand for both.
            EXPECT_EQ(catalogueText(number), all.size() == 1 ? *all.begin() : "") << number;
        }
    }
}

// What each position of a format shows: "s", "d" ... by position.
std::map<int, std::string> operands(const std::string& format) {
    static const std::regex operand(
        "%%|%(?:(\\d+)\\$)?[-+ #0]*\\d*(?:\\.\\d+)?[hlLqjzt]*([a-zA-Z])");
    std::map<int, std::string> found;
    int next = 0;
    for (std::sregex_iterator at(format.begin(), format.end(), operand), end; at != end; ++at) {
        if (!(*at)[2].matched) continue;
        found[(*at)[1].matched ? std::stoi((*at)[1]) : next++] = (*at)[2];
    }
    return found;
}

TEST_F(HomeTest, TheGermanTextsTakeTheSameOperands) {
    const WithEnvironment lang("LANG", "de_DE.UTF-8");
    qmsgi_forget();
    int translated = 0;
    for (const auto& message : kMessages) {
        const std::string text = catalogueText(message.number);
        if (text.empty()) continue;
        ++translated;
        EXPECT_EQ(operands(text), operands(message.text)) << message.number << " " << text;
    }
    EXPECT_GT(translated, 50);
}

TEST_F(HomeTest, TheTextsOfTheOwnLogAreReadUpToTheExplanation) {
    std::ifstream file(kHome + "/etc/LogMessages");
    std::set<std::string> keys;
    std::string line;
    while (std::getline(file, line) && line.compare(0, 1, "#") != 0) {
        const std::size_t equals = line.find('=');
        ASSERT_NE(equals, std::string::npos) << line;
        EXPECT_TRUE(keys.insert(line.substr(0, equals)).second) << line;
        // Java callers hand over no arguments.
        EXPECT_TRUE(operands(line.substr(equals + 1)).empty()) << line;
    }
    EXPECT_GT(keys.size(), 5u);
    EXPECT_TRUE(file) << "no explanation";
}

// Every setting that the collector's code asks for, with the default that it gives there ("" for
// none).
std::map<std::string, std::string> settingsInTheCode() {
    static const std::regex ask(
        "get(?:Int|Long|String|Bounded)?Property\\(\\s*\"([^\"]+)\"(?:,\\s*(-?\\d+)\\s*[,)])?");
    std::map<std::string, std::string> settings;
    const std::filesystem::path sources = VELORA_SOURCE_DIR "/src/jni";
    for (const auto& entry : std::filesystem::recursive_directory_iterator(sources)) {
        if (entry.path().extension() != ".cpp") continue;
        std::ostringstream text;
        text << std::ifstream(entry.path()).rdbuf();
        const std::string code = text.str();
        for (std::sregex_iterator at(code.begin(), code.end(), ask), end; at != end; ++at) {
            settings[(*at)[1]] = (*at)[2];
        }
    }
    return settings;
}

TEST_F(HomeTest, EverySettingOfTheCodeIsExplainedWithItsDefault) {
    std::map<std::string, std::string> explained;
    std::ifstream file(kHome + "/etc/datacollector.properties");
    for (std::string line; std::getline(file, line);) {
        const std::size_t equals = line.find('=');
        if (equals == std::string::npos || line.find(' ') != std::string::npos) continue;
        explained[line.substr(1, equals - 1)] = line.substr(equals + 1);
    }
    const auto settings = settingsInTheCode();
    EXPECT_GT(settings.size(), 15u);
    for (const auto& [key, normal] : settings) {
        EXPECT_EQ(explained.count(key), 1u) << key;
        if (!normal.empty()) {
            EXPECT_EQ(explained[key], normal) << key;
        }
    }
}

TEST_F(HomeTest, ShippedSettingsAreComments) {
    std::ifstream file(kHome + "/etc/datacollector.properties");
    int lines = 0;
    for (std::string line; std::getline(file, line); ++lines) {
        EXPECT_TRUE(line.empty() || line[0] == '#') << line;
    }
    EXPECT_GT(lines, 50);
    int level = 0;
    std::ifstream(kHome + "/etc/am.mod") >> level;
    EXPECT_EQ(level, 2);
}

}  // namespace
