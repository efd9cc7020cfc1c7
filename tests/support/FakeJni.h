// A Java world without a VM: a JNI function table over plain C++ objects, many threads' JNIEnvs,
// and a strict eye on what the native code does with it.
//
// References: what a test makes (string(), object() ...) are references that the VM's caller owns,
// as the arguments of a native are; they count as nobody's leak. What native code gets from JNI
// calls are local or global references, counted per env. Using a deleted one, deleting twice,
// calling JNI with an exception pending, leaving characters unreleased: each is a violation or a
// leak that a test's end asks for.
//
// Threads: every function from any thread. Bodies of Java methods run without a lock held.
#pragma once

#include <jni.h>

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

class FakeJvmpi;

class FakeJni {
public:
    using Args = std::vector<jvalue>;
    // A Java method's body. self is null (instance is a class) for static methods. To throw:
    // throwNow(env, ...) and return none(). Objects may be returned by any kind of reference.
    using Body = std::function<jvalue(JNIEnv* env, jobject self, const Args& args)>;

    // Answers vm's GetEnv for JNI versions with the calling thread's env.
    explicit FakeJni(FakeJvmpi& vm);
    ~FakeJni();
    FakeJni(const FakeJni&) = delete;
    FakeJni& operator=(const FakeJni&) = delete;

    // --- threads
    JNIEnv* env();                 // the thread that made this object
    JNIEnv* newEnv();              // one more Java thread's
    void bindThread(JNIEnv* env);  // GetEnv on the calling thread answers this from now on

    // --- classes
    class Class {
    public:
        Class& method(std::string_view name, std::string_view signature, Body body);
        Class& staticMethod(std::string_view name, std::string_view signature, Body body);
        Class& staticField(std::string_view name, std::string_view signature, jvalue value);

    private:
        friend class FakeJni;
        Class(FakeJni* jni, void* type) : jni_(jni), type_(type) {}
        FakeJni* jni_;
        void* type_;
    };
    // Slash form. Classes that were never defined are not found; java/lang/ has its usual few.
    Class defineClass(std::string_view name, std::string_view superName = "java/lang/Object");
    jclass classRef(std::string_view name);

    static jvalue none() { return jvalue{}; }
    static jvalue of(jobject v) {
        jvalue r{};
        r.l = v;
        return r;
    }
    static jvalue of(jint v) {
        jvalue r{};
        r.i = v;
        return r;
    }
    static jvalue of(jlong v) {
        jvalue r{};
        r.j = v;
        return r;
    }

    // --- objects
    jstring string(std::string_view modifiedUtf8);
    jstring string(std::u16string_view text);
    jobject object(std::string_view className);
    jobjectArray stringArray(std::initializer_list<const char*> texts);  // null: a null element
    jobjectArray objectArray(const std::vector<jobject>& elements);
    jbyteArray byteArray(const std::vector<std::uint8_t>& bytes);
    jintArray intArray(const std::vector<jint>& values);

    [[nodiscard]] std::string text(jobject string) const;  // modified UTF-8; "" for null
    [[nodiscard]] std::vector<std::uint8_t> bytes(jobject array) const;
    [[nodiscard]] std::vector<jint> ints(jobject array) const;
    [[nodiscard]] std::vector<std::string> texts(jobject array) const;  // null elements: "<null>"

    // --- exceptions
    void throwNow(JNIEnv* env, std::string_view className, std::string_view message = "");
    [[nodiscard]] std::string pending(JNIEnv* env) const;  // its class, "" when there is none
    void clearPending(JNIEnv* env);
    [[nodiscard]] std::vector<std::string> described()
        const;  // "class: message" per ExceptionDescribe

    // The nth call (1: the next) of that JNI function from now on fails as for lack of memory.
    // Known: FindClass, GetMethodID, GetStaticMethodID, GetStaticFieldID, NewGlobalRef,
    // NewStringUTF, GetStringUTFChars, NewObjectArray, New<T>Array.
    void fail(std::string_view function, int nth = 1);

    // Whether GetStringUTFRegion writes a closing zero: today's VMs do, nothing promises it.
    void closeRegions(bool close);

    // --- what was done
    struct Registration {
        std::string className, name, signature;
        void* function;
    };
    [[nodiscard]] std::vector<Registration> registrations() const;
    void setRegisterNativesResult(jint result);
    [[nodiscard]] long calls(
        std::string_view function) const;  // how often a JNI function was called

    [[nodiscard]] int localRefs(JNIEnv* env) const;
    [[nodiscard]] int peakLocalRefs(JNIEnv* env) const;  // since the last returnToJava
    [[nodiscard]] int globalRefs() const;
    // Drops every local reference of env, as the VM does when a native returns.
    void returnToJava(JNIEnv* env);

    // Local references, unreleased characters or elements, pending exceptions: empty when all is
    // clean.
    [[nodiscard]] std::vector<std::string> leaks() const;
    [[nodiscard]] std::vector<std::string> violations() const;

    struct State;  // shared with the function table

private:
    std::unique_ptr<State> state_;
};
