// Translated messages: where catalogues are found, when their texts are used, and that a bad one
// does no harm.
#include <cstdlib>

#include "QlogFixture.h"
#include "qlog/qmsg.h"

namespace fs = std::filesystem;

namespace {

class CatalogueTest : public QlogFixture {
protected:
    void SetUp() override {
        QlogFixture::SetUp();
        zis_set_dir(nullptr);
    }

    void compile(const std::string& language, const std::string& texts,
                 const std::string& codeset = "UTF-8") {
        fs::create_directories(path("msg/" + language));
        put("source.msg", "$ codeset=" + codeset + "\n$set 1\n$quote \"\n" + texts);
        const std::string command = "gencat '" + path("msg/" + language + "/cat.cat").string() +
                                    "' '" + path("source.msg").string() + "'";
        ASSERT_EQ(std::system(command.c_str()), 0);
    }

    std::string logged(int number, const char* format) {
        QlgLogInfo(logger_, "cat", 1, number, format, 507, "a", 502, 5, 0);
        return lastRecord("msg.log").substr(std::string("INFO  7 ").size());
    }

    WithEnvironment all_{"LC_ALL", nullptr};
    WithEnvironment messages_{"LC_MESSAGES", nullptr};
    WithEnvironment language_{"LANG", nullptr};
};

struct LanguageCase {
    const char* name;
    const char* lcAll;
    const char* lcMessages;
    const char* lang;
    const char* expected;
};

class LanguageTest : public CatalogueTest, public testing::WithParamInterface<LanguageCase> {};

TEST_P(LanguageTest, IsTheNearestThatThereIs) {
    compile("C", "7 \"C\"\n");
    compile("de", "7 \"de\"\n");
    compile("de_AT", "7 \"de_AT\"\n");
    compile("fr_FR.UTF-8@x", "7 \"fr\"\n");
    const std::string pattern =
        path("none/%N.cat").string() + "::" + path("msg/%L/%N.cat").string();
    const WithEnvironment nlspath("NLSPATH", pattern.c_str());
    const WithEnvironment all("LC_ALL", GetParam().lcAll);
    const WithEnvironment messages("LC_MESSAGES", GetParam().lcMessages);
    const WithEnvironment lang("LANG", GetParam().lang);
    open();
    EXPECT_EQ(logged(7, "default"), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Environments, LanguageTest,
    testing::Values(LanguageCase{"none", nullptr, nullptr, nullptr, "C"},
                    LanguageCase{"posix", nullptr, nullptr, "POSIX", "C"},
                    LanguageCase{"exact", nullptr, nullptr, "fr_FR.UTF-8@x", "fr"},
                    LanguageCase{"withoutCodeset", nullptr, nullptr, "de_AT.UTF-8", "de_AT"},
                    LanguageCase{"withoutTerritory", nullptr, nullptr, "de_DE.UTF-8@euro", "de"},
                    LanguageCase{"unknown", nullptr, nullptr, "en_GB.UTF-8", "C"},
                    LanguageCase{"allBeatsOthers", "de", "C", "C", "de"},
                    LanguageCase{"messagesBeatLang", "", "de_AT", "C", "de_AT"},
                    LanguageCase{"noPathAsLanguage", nullptr, nullptr, "../msg/de", "C"}),
    [](const auto& tested) { return std::string(tested.param.name); });

TEST_F(CatalogueTest, EveryPlaceholderOfThePathIsFilled) {
    compile("de", "7 \"found\"\n");
    fs::create_directories(path("x/de-AT-UTF-8-%"));
    fs::copy_file(path("msg/de/cat.cat"), path("x/de-AT-UTF-8-%/cat.cat"));
    const WithEnvironment nlspath("NLSPATH", path("x/%l-%t-%c-%%/%N.cat").c_str());
    const WithEnvironment lang("LANG", "de_AT.UTF-8@euro");
    open();
    EXPECT_EQ(logged(7, "default"), "found");
}

struct TextCase {
    const char* name;
    const char* text;  // of message 7 in the catalogue
    const char* expected;
};

class TextTest : public CatalogueTest, public testing::WithParamInterface<TextCase> {};

TEST_P(TextTest, IsUsedWhenItsOperandsHaveArguments) {
    compile("C", std::string("7 \"") + GetParam().text + "\"\n8 \"other\"\n");
    const WithEnvironment nlspath("NLSPATH", path("msg/%L/%N.cat").c_str());
    open();
    EXPECT_EQ(logged(7, "default %s %d"), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(Texts, TextTest,
                         testing::Values(TextCase{"inOrder", "text %s and %d", "text a and 5"},
                                         TextCase{"otherOrder", "%1$d for %0$s", "5 for a"},
                                         TextCase{"fewer", "only %1$d", "only 5"},
                                         TextCase{"none", "nothing", "nothing"},
                                         TextCase{"otherLetter", "%d %s", "a 5"},
                                         TextCase{"percent", "100%% %s", "100% a"},
                                         TextCase{"tooMany", "%s %s %s", "default a 5"},
                                         TextCase{"positionTooHigh", "%2$s", "default a 5"},
                                         TextCase{"writes", "%s %n", "default a 5"},
                                         TextCase{"starWidth", "%*d", "default a 5"},
                                         TextCase{"lonePercent", "100% ", "default a 5"}),
                         [](const auto& tested) { return std::string(tested.param.name); });

TEST_F(CatalogueTest, TheDefaultStandsWhereThereIsNoText) {
    compile("C", "7 \"seven\"\n");
    const WithEnvironment nlspath("NLSPATH", path("msg/%L/%N.cat").c_str());
    open();
    EXPECT_EQ(logged(7, "default"), "seven");
    EXPECT_EQ(logged(8, "default"), "default");
    QlgLogInfo(logger_, nullptr, 1, 7, "no catalogue", 0);
    EXPECT_EQ(lastRecord("msg.log"), "INFO  7 no catalogue");
    QlgLogInfo(logger_, "", 1, 7, "empty name", 0);
    EXPECT_EQ(lastRecord("msg.log"), "INFO  7 empty name");
    QlgLogInfo(logger_, "cat", 2, 7, "other set", 0);
    EXPECT_EQ(lastRecord("msg.log"), "INFO  7 other set");
    QlgLogInfo(logger_, "cat", -1, -7, "negative", 0);
    EXPECT_EQ(lastRecord("msg.log"), "INFO  -7 negative");
    QlgLogInfo(logger_, "cat", 1, 0, "no number", 0);
    EXPECT_EQ(lastRecord("msg.log"), "INFO  no number");
}

TEST_F(CatalogueTest, ALookUpNeedsItsRoom) {
    compile("C", "7 \"seven\"\n");
    const WithEnvironment nlspath("NLSPATH", path("msg/%L/%N.cat").c_str());
    qmsgi_forget();
    char text[6];
    EXPECT_EQ(qmsgi_lookup("cat", 1, 7, text, sizeof text), 5);
    EXPECT_STREQ(text, "seven");
    EXPECT_EQ(qmsgi_lookup("cat", 1, 7, text, sizeof text - 1), -1);
    EXPECT_EQ(qmsgi_lookup(nullptr, 1, 7, text, sizeof text), -1);
}

TEST_F(CatalogueTest, TextsAreConvertedFromTheCodeSetOfTheSite) {
    compile("C", "7 \"gr\xFC\xDF\x65 %s\"\n", "ISO-8859-1");
    fs::create_directories(path("codeset"));
    put("codeset/cat.codeset", "ISO-8859-1\n");
    put("codeset/odd.codeset", "NO-SUCH-CODE-SET\n");
    const WithEnvironment nlspath("NLSPATH", path("msg/%L/%N.cat").c_str());
    zis_set_dir(path("codeset").c_str());
    open();
    EXPECT_EQ(logged(7, "default"), "gr\xC3\xBC\xC3\x9F\x65 a");
    zis_set_dir(path("nowhere").c_str());
    EXPECT_EQ(logged(7, "default"), "gr\xFC\xDF\x65 a");
}

TEST_F(CatalogueTest, ANewTranslationOverTheOldOneDoesNoHarm) {
    compile("C", "7 \"" + std::string(3000, 'o') + "\"\n");
    const WithEnvironment nlspath("NLSPATH", path("msg/%L/%N.cat").c_str());
    open();
    EXPECT_EQ(logged(7, "default"), std::string(3000, 'o'));
    fs::resize_file(path("msg/C/cat.cat"), 0);  // as gencat begins
    EXPECT_EQ(logged(7, "default"), std::string(3000, 'o'));
    open();
    EXPECT_EQ(logged(7, "default"), "default");
}

// Looks all numbers up; what is found does not matter, as long as it is read from the catalogue.
void useDamaged(const fs::path& file, const std::string& bytes) {
    std::FILE* const out = std::fopen(file.c_str(), "wb");
    ASSERT_NE(out, nullptr);
    std::fwrite(bytes.data(), 1, bytes.size(), out);
    std::fclose(out);
    qmsgi_forget();
    char text[256];
    for (int number : {0, 1, 7, 8, 9, 1000}) {
        if (qmsgi_lookup("cat", 1, number, text, sizeof text) >= 0) {
            EXPECT_LT(std::string(text).size(), bytes.size());
        }
    }
}

TEST_F(CatalogueTest, ADamagedCatalogueDoesNoHarm) {
    compile("C", "7 \"seven\"\n8 \"eight\"\n9 \"nine\"\n");
    const WithEnvironment nlspath("NLSPATH", path("msg/%L/%N.cat").c_str());
    const std::string whole = get("msg/C/cat.cat");
    const fs::path file = path("msg/C/cat.cat");
    for (std::size_t n = 0; n < whole.size(); ++n) useDamaged(file, whole.substr(0, n));
    for (std::size_t at = 0; at < whole.size(); ++at) {
        for (const char damage : {'\x00', '\x01', '\x7F', '\xFF'}) {
            std::string damaged = whole;
            damaged[at] = damage;
            useDamaged(file, damaged);
        }
    }
    // The numbers that place the tables, together.
    for (std::size_t at = 4; at + 8 <= whole.size(); at += 4) {
        std::string damaged = whole;
        damaged.replace(at, 8, std::string("\x00\x00\x00\x80\x00\x00\x00\x80", 8));
        useDamaged(file, damaged);
    }
}

}  // namespace
