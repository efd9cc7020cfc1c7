// See FakeJni.h: objects, references and what a test asks for. The function table is
// FakeJniTable.cpp.
#include "support/FakeJni.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "support/FakeJniState.h"
#include "support/FakeJvmpi.h"

using fakejni::Env;
using fakejni::Field;
using fakejni::Kind;
using fakejni::Object;
using fakejni::Ref;
using fakejni::Type;

namespace fakejni {

std::string toModifiedUtf8(std::u16string_view text) {
    std::string out;
    for (const char16_t c : text) {
        if (c != 0 && c < 0x80) {
            out += static_cast<char>(c);
        } else if (c < 0x800) {  // and U+0000, so that no zero byte stands inside
            out += static_cast<char>(0xC0 | (c >> 6));
            out += static_cast<char>(0x80 | (c & 0x3F));
        } else {
            out += static_cast<char>(0xE0 | (c >> 12));
            out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
            out += static_cast<char>(0x80 | (c & 0x3F));
        }
    }
    return out;
}

std::u16string fromModifiedUtf8(std::string_view text) {
    std::u16string out;
    const auto byteAt = [&](std::size_t i) -> unsigned {
        return i < text.size() ? static_cast<unsigned char>(text[i]) : 0;
    };
    for (std::size_t i = 0; i < text.size();) {
        const unsigned first = byteAt(i);
        if (first < 0x80) {
            out += static_cast<char16_t>(first);
            i += 1;
        } else if ((first & 0xE0) == 0xC0) {
            out += static_cast<char16_t>(((first & 0x1F) << 6) | (byteAt(i + 1) & 0x3F));
            i += 2;
        } else if ((first & 0xF0) == 0xE0) {
            out += static_cast<char16_t>(((first & 0x0F) << 12) | ((byteAt(i + 1) & 0x3F) << 6) |
                                         (byteAt(i + 2) & 0x3F));
            i += 3;
        } else {  // no modified UTF-8; one unit per byte keeps tests of damage simple
            out += static_cast<char16_t>(first);
            i += 1;
        }
    }
    return out;
}

}  // namespace fakejni

Type* FakeJni::State::type(std::string_view name) {
    const auto found = types.find(name);
    if (found != types.end()) return found->second.get();
    return !name.empty() && name[0] == '[' ? define(name, "java/lang/Object") : nullptr;
}

Type* FakeJni::State::define(std::string_view name, std::string_view superName) {
    auto& slot = types[std::string(name)];
    if (slot == nullptr) {
        slot = std::make_unique<Type>();
        slot->name = name;
        if (name != superName) slot->super = type(superName);
        slot->mirror = newObject(type("java/lang/Class"));
        slot->mirror->mirrored = slot.get();
    }
    return slot.get();
}

Object* FakeJni::State::newObject(Type* type) {
    objects.emplace_back();
    objects.back().type = type;
    return &objects.back();
}

Object* FakeJni::State::newString(std::u16string text) {
    Object* const made = newObject(type("java/lang/String"));
    made->text = std::move(text);
    return made;
}

Object* FakeJni::State::newArray(const char* type, const void* values, std::size_t width,
                                 std::size_t count) {
    Object* const made = newObject(this->type(type));
    made->length = static_cast<jsize>(count);
    made->raw.resize(count * width);
    if (values != nullptr && count != 0) std::memcpy(made->raw.data(), values, made->raw.size());
    return made;
}

Ref* FakeJni::State::newRef(Object* target, Kind kind, Env* env) {
    if (target == nullptr) return nullptr;
    refs.push_back({target, kind, env});
    Ref* const ref = &refs.back();
    if (kind == Kind::local) {
        env->locals.insert(ref);
        env->peak = std::max(env->peak, env->locals.size());
    } else if (kind != Kind::caller) {
        ++globals;
    }
    return ref;
}

Object* FakeJni::State::target(jobject handle, const char* function) {
    if (handle == nullptr) return nullptr;
    const auto* const ref = reinterpret_cast<const Ref*>(handle);
    if (!ref->alive) {
        violation(std::string(function) + " with a deleted reference");
        return nullptr;
    }
    return ref->target;
}

void FakeJni::State::throwOn(Env* env, std::string_view className, std::string_view message) {
    Object* const thrown = newObject(define(className, "java/lang/Throwable"));
    thrown->text = fakejni::fromModifiedUtf8(message);
    env->pending = thrown;
}

bool FakeJni::State::enter(Env* env, const char* function, bool pendingAllowed) {
    ++callCounts[function];
    if (env->pending != nullptr && !pendingAllowed)
        violation(std::string(function) + " with a pending " + env->pending->type->name);
    const auto failure = failures.find(std::string_view(function));
    if (failure == failures.end() || --failure->second != 0) return true;
    failures.erase(failure);
    throwOn(env, "java/lang/OutOfMemoryError", function);
    return false;
}

FakeJni::FakeJni(FakeJvmpi& vm) : state_(std::make_unique<State>()) {
    // Class before Object: the first mirrors are given their type afterwards.
    Type* const classType = state_->define("java/lang/Class", "java/lang/Class");
    Type* const objectType = state_->define("java/lang/Object", "java/lang/Object");
    classType->super = objectType;
    classType->mirror->type = classType;
    objectType->mirror->type = classType;
    for (const char* name : {"java/lang/String", "java/lang/Throwable", "java/lang/Thread",
                             "java/lang/Integer", "java/lang/Long", "java/lang/System"})
        state_->define(name, "java/lang/Object");
    bindThread(newEnv());
    vm.jniEnv = [this]() -> JNIEnv* {
        const std::lock_guard hold(state_->lock);
        const auto found = state_->threads.find(std::this_thread::get_id());
        return found == state_->threads.end() ? nullptr : found->second;
    };
}

FakeJni::~FakeJni() = default;

JNIEnv* FakeJni::env() {
    const std::lock_guard hold(state_->lock);
    return &state_->envs.front();
}

JNIEnv* FakeJni::newEnv() {
    const std::lock_guard hold(state_->lock);
    Env& made = state_->envs.emplace_back();
    made.functions = fakejni::functionTable();
    made.state = state_.get();
    return &made;
}

void FakeJni::bindThread(JNIEnv* env) {
    const std::lock_guard hold(state_->lock);
    state_->threads[std::this_thread::get_id()] = static_cast<Env*>(env);
}

FakeJni::Class& FakeJni::Class::method(std::string_view name, std::string_view signature,
                                       Body body) {
    const std::lock_guard hold(jni_->state_->lock);
    static_cast<Type*>(type_)->methods.push_back(
        {std::string(name), std::string(signature), false, std::move(body)});
    return *this;
}

FakeJni::Class& FakeJni::Class::staticMethod(std::string_view name, std::string_view signature,
                                             Body body) {
    method(name, signature, std::move(body));
    static_cast<Type*>(type_)->methods.back().isStatic = true;
    return *this;
}

FakeJni::Class& FakeJni::Class::staticField(std::string_view name, std::string_view signature,
                                            jvalue value) {
    const std::lock_guard hold(jni_->state_->lock);
    Field made{std::string(name), std::string(signature), value};
    if (made.isObject()) made.object = jni_->state_->target(value.l, "staticField");
    static_cast<Type*>(type_)->fields.push_back(std::move(made));
    return *this;
}

FakeJni::Class FakeJni::defineClass(std::string_view name, std::string_view superName) {
    const std::lock_guard hold(state_->lock);
    if (state_->type(superName) == nullptr) state_->define(superName, "java/lang/Object");
    return {this, state_->define(name, superName)};
}

namespace {

jobject callerRef(FakeJni::State& state, Object* object) {
    return reinterpret_cast<jobject>(state.newRef(object, Kind::caller, nullptr));
}

}  // namespace

jclass FakeJni::classRef(std::string_view name) {
    const std::lock_guard hold(state_->lock);
    Type* const type = state_->type(name);
    return static_cast<jclass>(callerRef(*state_, type == nullptr ? nullptr : type->mirror));
}

jstring FakeJni::string(std::string_view modifiedUtf8) {
    return string(std::u16string_view(fakejni::fromModifiedUtf8(modifiedUtf8)));
}

jstring FakeJni::string(std::u16string_view text) {
    const std::lock_guard hold(state_->lock);
    return static_cast<jstring>(callerRef(*state_, state_->newString(std::u16string(text))));
}

jobject FakeJni::object(std::string_view className) {
    const std::lock_guard hold(state_->lock);
    return callerRef(*state_, state_->newObject(state_->define(className, "java/lang/Object")));
}

jobjectArray FakeJni::stringArray(std::initializer_list<const char*> texts) {
    std::vector<jobject> elements;
    for (const char* text : texts)
        elements.push_back(text == nullptr ? nullptr : string(std::string_view(text)));
    return objectArray(elements);
}

jobjectArray FakeJni::objectArray(const std::vector<jobject>& elements) {
    const std::lock_guard hold(state_->lock);
    Object* const array = state_->newObject(state_->type("[Ljava/lang/Object;"));
    array->length = static_cast<jsize>(elements.size());
    for (jobject element : elements)
        array->elements.push_back(state_->target(element, "objectArray"));
    return static_cast<jobjectArray>(callerRef(*state_, array));
}

jbyteArray FakeJni::byteArray(const std::vector<std::uint8_t>& bytes) {
    const std::lock_guard hold(state_->lock);
    return static_cast<jbyteArray>(
        callerRef(*state_, state_->newArray("[B", bytes.data(), 1, bytes.size())));
}

jintArray FakeJni::intArray(const std::vector<jint>& values) {
    const std::lock_guard hold(state_->lock);
    return static_cast<jintArray>(
        callerRef(*state_, state_->newArray("[I", values.data(), sizeof(jint), values.size())));
}

std::string FakeJni::text(jobject string) const {
    const std::lock_guard hold(state_->lock);
    const Object* const target = state_->target(string, "text");
    return target == nullptr ? "" : fakejni::toModifiedUtf8(target->text);
}

std::vector<std::uint8_t> FakeJni::bytes(jobject array) const {
    const std::lock_guard hold(state_->lock);
    const Object* const target = state_->target(array, "bytes");
    return target == nullptr ? std::vector<std::uint8_t>() : target->raw;
}

std::vector<jint> FakeJni::ints(jobject array) const {
    const std::vector<std::uint8_t> raw = bytes(array);
    std::vector<jint> values(raw.size() / sizeof(jint));
    if (!values.empty()) std::memcpy(values.data(), raw.data(), values.size() * sizeof(jint));
    return values;
}

std::vector<std::string> FakeJni::texts(jobject array) const {
    const std::lock_guard hold(state_->lock);
    std::vector<std::string> out;
    if (const Object* const target = state_->target(array, "texts"); target != nullptr)
        for (const Object* element : target->elements)
            out.push_back(element == nullptr ? "<null>" : fakejni::toModifiedUtf8(element->text));
    return out;
}

void FakeJni::throwNow(JNIEnv* env, std::string_view className, std::string_view message) {
    const std::lock_guard hold(state_->lock);
    state_->throwOn(static_cast<Env*>(env), className, message);
}

std::string FakeJni::pending(JNIEnv* env) const {
    const std::lock_guard hold(state_->lock);
    const Object* const thrown = static_cast<Env*>(env)->pending;
    return thrown == nullptr ? "" : thrown->type->name;
}

void FakeJni::clearPending(JNIEnv* env) {
    const std::lock_guard hold(state_->lock);
    static_cast<Env*>(env)->pending = nullptr;
}

std::vector<std::string> FakeJni::described() const {
    const std::lock_guard hold(state_->lock);
    return state_->described;
}

void FakeJni::fail(std::string_view function, int nth) {
    const std::lock_guard hold(state_->lock);
    state_->failures[std::string(function)] = nth;
}

void FakeJni::closeRegions(bool close) {
    const std::lock_guard hold(state_->lock);
    state_->closeRegions = close;
}

std::vector<FakeJni::Registration> FakeJni::registrations() const {
    const std::lock_guard hold(state_->lock);
    return state_->registrations;
}

void FakeJni::setRegisterNativesResult(jint result) {
    const std::lock_guard hold(state_->lock);
    state_->registerResult = result;
}

long FakeJni::calls(std::string_view function) const {
    const std::lock_guard hold(state_->lock);
    const auto found = state_->callCounts.find(function);
    return found == state_->callCounts.end() ? 0 : found->second;
}

int FakeJni::localRefs(JNIEnv* env) const {
    const std::lock_guard hold(state_->lock);
    return static_cast<int>(static_cast<Env*>(env)->locals.size());
}

int FakeJni::peakLocalRefs(JNIEnv* env) const {
    const std::lock_guard hold(state_->lock);
    return static_cast<int>(static_cast<Env*>(env)->peak);
}

int FakeJni::globalRefs() const {
    const std::lock_guard hold(state_->lock);
    return state_->globals;
}

void FakeJni::returnToJava(JNIEnv* env) {
    const std::lock_guard hold(state_->lock);
    auto* const mine = static_cast<Env*>(env);
    for (Ref* ref : mine->locals) ref->alive = false;
    mine->locals.clear();
    mine->peak = 0;
}

std::vector<std::string> FakeJni::leaks() const {
    const std::lock_guard hold(state_->lock);
    std::vector<std::string> out;
    for (const Env& env : state_->envs) {
        for (const Ref* ref : env.locals)
            out.push_back("local reference to a " + ref->target->type->name);
        if (env.pending != nullptr)
            out.push_back("pending " + env.pending->type->name + ": " +
                          fakejni::toModifiedUtf8(env.pending->text));
    }
    for (std::size_t i = 0; i < state_->lent.size(); ++i)
        out.push_back("unreleased GetStringUTFChars");
    return out;
}

std::vector<std::string> FakeJni::violations() const {
    const std::lock_guard hold(state_->lock);
    return state_->violations;
}
