// An agent home in a temporary folder, and the identity that makes the collector use it. The folder
// goes away with the object, and the identity is taken back.
#pragma once

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "foundation/Identity.h"

class TestHome {
public:
    explicit TestHome(const std::string& node = "n1", const std::string& server = "s1",
                      const std::string& profile = "") {
        std::string pattern = (std::filesystem::temp_directory_path() / "velora-XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr) std::abort();
        path_ = pattern;
        for (const char* folder : {"etc", "logs", "msg", "codeset"})
            std::filesystem::create_directory(path_ / folder);
        identify(node, server, profile);
    }
    ~TestHome() {
        Identity::set("", "", "", "");
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TestHome(const TestHome&) = delete;
    TestHome& operator=(const TestHome&) = delete;

    void identify(const std::string& node, const std::string& server, const std::string& profile) {
        Identity::set(path_.c_str(), node.c_str(), server.c_str(), profile.c_str());
    }

    [[nodiscard]] std::string path(const std::string& below = "") const {
        return below.empty() ? path_.string() : (path_ / below).string();
    }

    void write(const std::string& below, const std::string& content) const {
        std::ofstream(path(below), std::ios::binary) << content;
    }

    [[nodiscard]] std::string read(const std::string& below) const {
        std::ostringstream content;
        content << std::ifstream(path(below), std::ios::binary).rdbuf();
        return content.str();
    }

    [[nodiscard]] std::vector<std::string> files(const std::string& folder) const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(path(folder)))
            names.push_back(entry.path().filename().string());
        return names;
    }

private:
    std::filesystem::path path_;
};
