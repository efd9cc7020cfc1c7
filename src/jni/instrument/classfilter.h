// Which classes are instrumented: the collector's own package never, a fixed few always, the rest
// by the include and exclude lists that the Java side hands over.
#pragma once

#include <atomic>

enum ClassFilter : int {
    kInstrumentClass = 0,  // traced
    kFilteredOut = 1,      // own package, or an exclude entry matches
    kInternalInclude = 2,  // always traced
};

// Decides for a slash-separated class name; null is kInstrumentClass. Include entries are asked
// before exclude entries. The last character of an entry is a wildcard mark and is not compared:
// "com/acme*" is a plain prefix test, and an entry of one character matches every name. Threads:
// any; reads whichever lists are published at that moment.
int isClassFiltered(const char* className);

// Null-terminated arrays of C strings, null until set; ProbeMgr::setIncludeExcludeList owns them
// and replaces them through publishFilterLists.
extern std::atomic<char**> include_list;
extern std::atomic<char**> exclude_list;

// Puts both lists in force at once. When it returns nobody reads the former ones any more, so that
// their owner may free them.
void publishFilterLists(char** include, char** exclude);

extern const char* const internal_include_list[];  // always instrumented
extern const char* const primitive_list[];         // names never registered as classes

// True for a name of primitive_list.
bool isPrimitiveName(const char* className);
