// The component logging toolkit with a memory: what was logged is kept as lines that a test reads,
// objects and their properties are what the test configured. A program that uses it runs without
// the real one.
//
// State is process-wide, as the toolkit's is; making a FakeQlog starts it afresh, its end forgets
// everything. Threads: every function from any thread.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "qlog/qlog.h"

class FakeQlog {
public:
    FakeQlog();
    ~FakeQlog();
    FakeQlog(const FakeQlog&) = delete;
    FakeQlog& operator=(const FakeQlog&) = delete;

    struct Line {
        QlgHandle object;
        int level;              // QLG_LEVEL_...
        std::string catalogue;  // messages only
        int set = 0;
        int number = 0;    // messages only; 0: a debug or plain line
        std::string file;  // debug lines only
        std::string function;
        int line = 0;
        std::string text;  // formatted
    };

    // The configured objects: found by QlgGetObject once the toolkit is open.
    QlgHandle addObject(const std::string& name, const std::string& type = "");
    void removeObject(const std::string& name);
    void setProperty(const std::string& object, const std::string& name, const std::string& value);
    [[nodiscard]] std::string property(const std::string& object, const std::string& name) const;
    // What the program told the toolkit, and what a test sets to be told.
    struct Kit {
        bool open = false, ffdcEnabled = false;
        bool failOpen = false;
        std::string openedFile;  // what QlgOpenToolkit was given
        std::string codesetDir;
        std::string ffdcBaseDir;  // "": none
        std::string ffdcFiles;    // "": none
        int handlesHeld = 0;      // gets less releases
        int strings = 0;          // given out and not freed with ZosMemoryFree
    };
    static Kit& kit();  // by one thread at a time

    // Lines of every object, filtered as the toolkit does by the object's "level" property (default
    // 0: everything).
    [[nodiscard]] std::vector<Line> lines() const;
    [[nodiscard]] std::vector<Line> messages(int number) const;  // with that number
    [[nodiscard]] bool logged(std::string_view part) const;      // in any line's text
    void clearLines();
};
