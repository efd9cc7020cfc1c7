// Scope objects for what the VM lends: local references and the characters of strings, given back
// on every way out.
#pragma once

#include <jni.h>

template <typename Ref>
class LocalRef {
public:
    LocalRef(JNIEnv* env, Ref ref) : env_(env), ref_(ref) {}
    ~LocalRef() {
        if (ref_ != nullptr) env_->DeleteLocalRef(ref_);
    }
    LocalRef(const LocalRef&) = delete;
    LocalRef& operator=(const LocalRef&) = delete;

    Ref get() const { return ref_; }
    explicit operator bool() const { return ref_ != nullptr; }

private:
    JNIEnv* env_;
    Ref ref_;
};

// The modified UTF-8 of a Java string; null for a null string or when the VM has no memory.
class UtfChars {
public:
    UtfChars(JNIEnv* env, jstring text)
        : env_(env),
          text_(text),
          chars_(text == nullptr ? nullptr : env->GetStringUTFChars(text, nullptr)) {}
    ~UtfChars() {
        if (chars_ != nullptr) env_->ReleaseStringUTFChars(text_, chars_);
    }
    UtfChars(const UtfChars&) = delete;
    UtfChars& operator=(const UtfChars&) = delete;

    const char* get() const { return chars_; }

private:
    JNIEnv* env_;
    jstring text_;
    const char* chars_;
};
