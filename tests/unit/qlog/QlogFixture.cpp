#include "QlogFixture.h"

#include <cstdlib>
#include <fstream>
#include <sstream>

namespace fs = std::filesystem;

void QlogFixture::SetUp() {
    std::string pattern = (fs::temp_directory_path() / "qlog-test-XXXXXX").string();
    ASSERT_NE(::mkdtemp(pattern.data()), nullptr);
    dir_ = pattern;
}

void QlogFixture::TearDown() {
    QlgCloseToolkit();
    std::error_code ignored;
    fs::remove_all(dir_, ignored);
}

void QlogFixture::writeConfiguration(const std::string& moreLines) {
    const std::string dir = dir_.string();
    put("test.properties",
        "log.msg.type = qlg_logger\nlog.msg.level = INFO\nlog.msg.handlers = file.msg\n"
        "log.trace.type = qlg_tracer\nlog.trace.level = OFF\nlog.trace.handlers = file.trace\n"
        "file.msg.type = qlg_filehandler\nfile.msg.fileName = " +
            dir +
            "/msg.log\n"
            "file.trace.type = qlg_filehandler\nfile.trace.fileName = " +
            dir +
            "/trace.log\n"
            "ffdc.type = qlg_ffdchandler\nffdc.minSeconds = 0\n" +
            moreLines);
}

void QlogFixture::open(const std::string& moreLines) {
    writeConfiguration(moreLines);
    ASSERT_EQ(QlgOpenToolkit(path("test.properties").c_str()), 1);
    logger_ = QlgGetObject("log.msg", nullptr);
    tracer_ = QlgGetObject("log.trace", nullptr);
    ASSERT_NE(logger_, nullptr);
    ASSERT_NE(tracer_, nullptr);
}

void QlogFixture::put(const std::string& name, const std::string& text) const {
    std::ofstream(path(name), std::ios::binary) << text;
}

std::string QlogFixture::get(const std::string& name) const {
    std::ostringstream text;
    text << std::ifstream(path(name), std::ios::binary).rdbuf();
    return text.str();
}

std::vector<std::string> QlogFixture::records(const std::string& name) const {
    std::vector<std::string> lines;
    std::ifstream file(path(name));
    for (std::string line; std::getline(file, line);) {
        const std::size_t end = line.find("] ");
        const bool prefixed = line.compare(0, 2, "20") == 0 && end != std::string::npos;
        lines.push_back(prefixed ? line.substr(end + 2) : line);
    }
    return lines;
}

std::string QlogFixture::lastRecord(const std::string& name) const {
    const auto all = records(name);
    return all.empty() ? "" : all.back();
}

std::string QlogFixture::property(QlgHandle object, const char* name) {
    int exists = -1;
    char* const value = QlgGetObjProp(object, name, &exists);
    EXPECT_EQ(exists, value != nullptr ? 1 : 0);
    const std::string copy = value != nullptr ? value : "(none)";
    ZosMemoryFree(value);
    return copy;
}

WithEnvironment::WithEnvironment(const char* name, const char* value) : name_(name) {
    const char* old = std::getenv(name);
    was_ = old != nullptr;
    if (was_) old_ = old;
    if (value != nullptr) {
        ::setenv(name, value, 1);
    } else {
        ::unsetenv(name);
    }
}

WithEnvironment::~WithEnvironment() {
    if (was_) {
        ::setenv(name_.c_str(), old_.c_str(), 1);
    } else {
        ::unsetenv(name_.c_str());
    }
}
