// A folder of its own for every test, with a configuration and the files that the toolkit writes.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "qlog/qlog.h"

class QlogFixture : public testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    // Opens the toolkit with a message logger "log.msg", a tracer "log.trace", file handlers
    // "file.msg" and "file.trace" (msg.log, trace.log), a capture handler "ffdc", and these lines
    // behind.
    void open(const std::string& moreLines = "");
    void writeConfiguration(const std::string& moreLines);

    std::filesystem::path path(const std::string& name) const { return dir_ / name; }
    void put(const std::string& name, const std::string& text) const;
    std::string get(const std::string& name) const;  // empty when missing
    // The file's lines; of a record only what follows the time and the thread.
    std::vector<std::string> records(const std::string& name) const;
    std::string lastRecord(const std::string& name) const;
    // Property of an object, "(none)" when it does not exist.
    static std::string property(QlgHandle object, const char* name);

    std::filesystem::path dir_;
    QlgHandle logger_ = nullptr;
    QlgHandle tracer_ = nullptr;
};

// Sets an environment variable for the life of the object; null unsets it.
class WithEnvironment {
public:
    WithEnvironment(const char* name, const char* value);
    ~WithEnvironment();
    WithEnvironment(const WithEnvironment&) = delete;
    WithEnvironment& operator=(const WithEnvironment&) = delete;

private:
    std::string name_;
    bool was_;
    std::string old_;
};
