// Reads a heap dump as a strict consumer does, and answers questions about single objects
// afterwards.
#pragma once

#include <map>
#include <string>
#include <unordered_map>
#include <vector>

#include "jvmpi/jvmpi.h"

class DumpReader {
public:
    // In the handler of the heap-dump event. Asks the interface for every class it meets.
    void read(const JVMPI_Event& event, JVMPI_Interface& jvmpi);

    // In the handler of a class-load event that comes while read() runs.
    void learnClass(const JVMPI_Event& event);

    // "key=value|..." with counts and what was wrong.
    std::string summary() const;

    // Value as a decimal number (references: the id; float and double: their bits); "absent" when
    // there is none such.
    std::string field(jlong object, jlong declaringClass, const std::string& name) const;
    std::string staticField(jlong type, const std::string& name) const;
    std::string element(jlong array, jlong index) const;

    // "instance <class id>", "objects <count> <element class id>", "primitives <count> <type>",
    // "class <super id> <interface ids>" or "absent".
    std::string kind(jlong object) const;

    // "name count" per class of instances.
    std::vector<std::string> instanceCounts() const;

    // "tag thread frame" of each root of this object.
    std::vector<std::string> roots(jlong object) const;

private:
    struct ClassInfo {
        std::string name;
        jint interfaces = 0;
        std::vector<std::pair<std::string, char>>
            statics;  // name, first character of the signature
        std::vector<std::pair<std::string, char>> instances;
        jlong super = 0;
        std::size_t staticsAt = 0;  // 0: no class-dump record
        bool known = false;
    };
    struct Record {
        int tag = 0;
        std::size_t at = 0;  // of the tag byte
    };
    struct Root {
        int tag;
        jlong thread;
        jint frame;
    };

    ClassInfo& resolve(jlong id);
    bool readRecord();
    bool readLevelZero();
    void skipRoot(int tag, std::size_t extra, bool hasFrame);
    void readClass(std::size_t at);
    void readInstance(std::size_t at);
    void readObjects(std::size_t at);
    void readPrimitives(std::size_t at);
    void checkReferences();
    std::size_t bytesOf(char kind) const;
    void note(const std::string& trouble);
    template <typename T>
    T get(std::size_t at) const;
    std::string value(std::size_t at, char kind) const;
    std::string interfaces(jlong type, std::size_t at) const;
    std::size_t instanceBytes(jlong type) const;

    JVMPI_Interface* jvmpi_ = nullptr;
    int level_ = 2;
    std::vector<char> bytes_;
    std::size_t cursor_ = 0;
    std::unordered_map<jlong, Record> objects_;
    std::unordered_map<jlong, ClassInfo> classes_;
    std::unordered_multimap<jlong, Root> roots_;
    std::map<std::string, long> counts_;
    jlong asked_ = 0;
    std::vector<std::string> troubles_;
    bool ended_ = false;
};

extern DumpReader* dumpReader;  // of the last dump; null before the first
