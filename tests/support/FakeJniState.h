// The inside of FakeJni: its objects, references and books. Only FakeJni*.cpp include this.
#pragma once

#include <cstdarg>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <string_view>
#include <thread>
#include <unordered_map>
#include <utility>
#include <vector>

#include "support/FakeJni.h"

namespace fakejni {

struct Type;
struct Object;

struct Method {
    std::string name, signature;
    bool isStatic;
    FakeJni::Body body;
};

struct Field {  // static, as all that the collector reads
    std::string name, signature;
    jvalue plain{};
    Object* object = nullptr;
    static constexpr bool isStatic = true;

    [[nodiscard]] bool isObject() const { return signature[0] == 'L'; }
};

struct Type {
    std::string name;  // slash form
    Type* super = nullptr;
    Object* mirror = nullptr;  // its java.lang.Class
    std::deque<Method> methods;
    std::deque<Field> fields;
};

struct Object {
    Type* type = nullptr;
    Type* mirrored = nullptr;       // of a java.lang.Class
    std::u16string text;            // of a string; the message of a throwable
    std::vector<Object*> elements;  // of an object array
    std::vector<std::uint8_t> raw;  // of a primitive array, in machine order
    jsize length = -1;              // of an array; -1: not one
};

enum class Kind { caller, local, global };

struct Env;

// What a jobject points to. Never freed, so that a use after deletion is seen and not a crash.
struct Ref {
    Object* target;
    Kind kind;
    Env* env;  // of a local reference
    bool alive = true;
};

struct Env : JNIEnv_ {
    FakeJni::State* state = nullptr;
    Object* pending = nullptr;
    std::set<Ref*> locals;
    std::size_t peak = 0;
};

// The characters handed out by GetStringUTFChars.
struct Lent {
    Object* object;
    std::unique_ptr<char[]> memory;
};

std::string toModifiedUtf8(std::u16string_view text);
std::u16string fromModifiedUtf8(std::string_view text);
const JNINativeInterface_* functionTable();

}  // namespace fakejni

struct FakeJni::State {
    mutable std::recursive_mutex lock;  // guards everything below; not held while bodies run
    std::deque<fakejni::Env> envs;
    std::map<std::thread::id, fakejni::Env*> threads;
    std::map<std::string, std::unique_ptr<fakejni::Type>, std::less<>> types;
    std::deque<fakejni::Object> objects;
    std::deque<fakejni::Ref> refs;
    std::unordered_map<const void*, fakejni::Lent> lent;
    std::map<std::string, int, std::less<>> failures;  // function: calls until it fails
    std::map<std::string, long, std::less<>> callCounts;
    std::vector<Registration> registrations;
    jint registerResult = JNI_OK;
    int globals = 0;
    bool closeRegions = true;
    std::vector<std::string> described, violations;

    // All of these are called with the lock held.
    fakejni::Type* type(std::string_view name);  // null when unknown; makes array types
    fakejni::Type* define(std::string_view name, std::string_view superName);
    fakejni::Object* newObject(fakejni::Type* type);
    fakejni::Object* newString(std::u16string text);
    // Zeroes when values is null.
    fakejni::Object* newArray(const char* type, const void* values, std::size_t width,
                              std::size_t count);
    fakejni::Ref* newRef(fakejni::Object* target, fakejni::Kind kind, fakejni::Env* env);
    fakejni::Object* target(jobject ref, const char* function);  // null, and a violation when stale
    void throwOn(fakejni::Env* env, std::string_view className, std::string_view message);
    void violation(std::string what) { violations.push_back(std::move(what)); }
    // Counts the call; false when it is to fail now (an OutOfMemoryError is then pending). Calling
    // most functions with an exception pending is a violation.
    bool enter(fakejni::Env* env, const char* function, bool pendingAllowed = false);
};
