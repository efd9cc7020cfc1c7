// The JNI function table of FakeJni: what the collector and its tests call. Any other function ends
// the test program with a message instead of jumping to nowhere.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <type_traits>

#include "support/FakeJniState.h"

using fakejni::Env;
using fakejni::Field;
using fakejni::Kind;
using fakejni::Lent;
using fakejni::Method;
using fakejni::Object;
using fakejni::Ref;
using fakejni::Type;

namespace {

[[noreturn]] void notOffered(const char* what) {
    std::fprintf(stderr, "FakeJni does not offer %s\n", what);
    std::abort();
}

// One call of a JNI function: counted, with the state locked for its length.
class Call {
public:
    Call(JNIEnv* caller, const char* name, bool pendingAllowed = false)
        : env(static_cast<Env*>(caller)),
          state(*env->state),
          hold_(state.lock),
          function_(name),
          ok(state.enter(env, name, pendingAllowed)) {}

    template <typename R = jobject>
    R local(Object* object) {
        return static_cast<R>(reinterpret_cast<jobject>(state.newRef(object, Kind::local, env)));
    }
    Object* target(jobject object) { return state.target(object, function_); }
    // The target of a reference that must not be null.
    Object* needed(jobject object) {
        Object* const found = target(object);
        if (found == nullptr) violation("with a null object");
        return found;
    }
    // The type behind a jclass; null and a violation when it is none.
    Type* typeOf(jclass type) {
        const Object* const mirror = target(type);
        if (mirror != nullptr && mirror->mirrored != nullptr) return mirror->mirrored;
        violation("without a class");
        return nullptr;
    }
    Object* arrayOf(jobject array) {
        Object* const found = needed(array);
        if (found == nullptr || found->length >= 0) return found;
        violation("of no array");
        return nullptr;
    }
    // Whether a range lies in a whole of that size; it throws what a VM throws when it does not.
    bool inside(jsize start, jsize length, jsize size, const char* exception) {
        if (start >= 0 && length >= 0 && start <= size - length) return true;
        raise(exception, function_);
        return false;
    }
    void raise(const char* exception, std::string_view message) {
        state.throwOn(env, exception, message);
    }
    void violation(const char* what) { state.violation(std::string(function_) + " " + what); }

    Env* const env;
    FakeJni::State& state;

private:
    const std::lock_guard<std::recursive_mutex> hold_;
    const char* const function_;

public:
    const bool ok;  // false: it is to fail, an OutOfMemoryError is pending
};

constexpr char kArrayBounds[] = "java/lang/ArrayIndexOutOfBoundsException";
constexpr char kTextBounds[] = "java/lang/StringIndexOutOfBoundsException";

// --- classes, references, exceptions -------------------------------------------------------------

jclass JNICALL findClass(JNIEnv* env, const char* name) {
    Call call(env, "FindClass");
    if (!call.ok) return nullptr;
    if (const Type* const type = call.state.type(name); type != nullptr)
        return call.local<jclass>(type->mirror);
    call.raise("java/lang/NoClassDefFoundError", name);
    return nullptr;
}

jclass JNICALL getObjectClass(JNIEnv* env, jobject object) {
    Call call(env, "GetObjectClass");
    const Object* const target = call.needed(object);
    return target == nullptr ? nullptr : call.local<jclass>(target->type->mirror);
}

jobject JNICALL newGlobalRef(JNIEnv* env, jobject object) {
    Call call(env, "NewGlobalRef");
    if (!call.ok) return nullptr;
    return reinterpret_cast<jobject>(call.state.newRef(call.target(object), Kind::global, nullptr));
}

void deleteReference(JNIEnv* env, jobject object, Kind kind, const char* function) {
    Call call(env, function, true);
    auto* const ref = reinterpret_cast<Ref*>(object);
    if (ref == nullptr) return;
    if (!ref->alive) return call.violation("of a deleted reference");
    if (ref->kind != kind && (kind != Kind::local || ref->kind != Kind::caller))
        return call.violation("of another kind of reference");
    ref->alive = false;
    if (ref->kind == Kind::local) {
        if (ref->env != call.env) call.violation("on another thread");
        ref->env->locals.erase(ref);
    } else if (ref->kind == Kind::global) {
        --call.state.globals;
    }
}

void JNICALL deleteLocalRef(JNIEnv* env, jobject object) {
    deleteReference(env, object, Kind::local, "DeleteLocalRef");
}
void JNICALL deleteGlobalRef(JNIEnv* env, jobject object) {
    deleteReference(env, object, Kind::global, "DeleteGlobalRef");
}

// Unlike today's VMs it leaves the exception pending: code that relies on the side effect is found.
void JNICALL exceptionDescribe(JNIEnv* env) {
    const Call call(env, "ExceptionDescribe", true);
    if (const Object* const thrown = call.env->pending; thrown != nullptr)
        call.state.described.push_back(thrown->type->name + ": " +
                                       fakejni::toModifiedUtf8(thrown->text));
}

void JNICALL exceptionClear(JNIEnv* env) {
    Call(env, "ExceptionClear", true).env->pending = nullptr;
}

jboolean JNICALL exceptionCheck(JNIEnv* env) {
    return Call(env, "ExceptionCheck", true).env->pending != nullptr;
}

// --- methods and static fields -------------------------------------------------------------------

// The member of that name and signature of a class or of one above it.
template <typename Member>
void* find(JNIEnv* env, jclass type, std::deque<Member> Type::*members, const char* name,
           const char* signature, bool isStatic, const char* function, const char* exception) {
    Call call(env, function);
    if (!call.ok) return nullptr;
    for (Type* at = call.typeOf(type); at != nullptr; at = at->super)
        for (Member& member : at->*members)
            if (member.isStatic == isStatic && member.name == name && member.signature == signature)
                return &member;
    call.raise(exception, name);
    return nullptr;
}

jmethodID JNICALL getMethodId(JNIEnv* env, jclass type, const char* name, const char* signature) {
    return static_cast<jmethodID>(find(env, type, &Type::methods, name, signature, false,
                                       "GetMethodID", "java/lang/NoSuchMethodError"));
}
jmethodID JNICALL getStaticMethodId(JNIEnv* env, jclass type, const char* name,
                                    const char* signature) {
    return static_cast<jmethodID>(find(env, type, &Type::methods, name, signature, true,
                                       "GetStaticMethodID", "java/lang/NoSuchMethodError"));
}
jfieldID JNICALL getStaticFieldId(JNIEnv* env, jclass type, const char* name,
                                  const char* signature) {
    return static_cast<jfieldID>(find(env, type, &Type::fields, name, signature, true,
                                      "GetStaticFieldID", "java/lang/NoSuchFieldError"));
}

FakeJni::Args arguments(const std::string& signature, va_list list) {
    FakeJni::Args out;
    for (std::size_t i = 1; signature[i] != ')'; ++i) {
        if (signature[i] == 'J')
            out.push_back(FakeJni::of(va_arg(list, jlong)));
        else if (signature[i] == 'L' && (i = signature.find(';', i)) != std::string::npos)
            out.push_back(FakeJni::of(va_arg(list, jobject)));
        else
            notOffered(("arguments of " + signature).c_str());
    }
    return out;
}

template <typename T>
T JNICALL callMethod(JNIEnv* env, jobject self, jmethodID id, va_list list) {
    auto* const method = reinterpret_cast<Method*>(id);
    {
        Call call(env, "CallMethod");
        if (method == nullptr) call.violation("of a null method");
        if (!call.ok || method == nullptr) return T();
    }
    const jvalue result =
        method->body(env, method->isStatic ? nullptr : self, arguments(method->signature, list));
    auto* const mine = static_cast<Env*>(env);
    const std::lock_guard hold(mine->state->lock);
    if (mine->pending != nullptr) return T();
    if constexpr (std::is_same_v<T, jobject>) {
        return reinterpret_cast<jobject>(
            mine->state->newRef(mine->state->target(result.l, "CallMethod"), Kind::local, mine));
    } else if constexpr (!std::is_void_v<T>) {
        T value;  // every member of the union begins where it does
        std::memcpy(&value, &result, sizeof value);
        return value;
    }
}
template <typename T>
T JNICALL callStaticMethod(JNIEnv* env, jclass type, jmethodID id, va_list list) {
    return callMethod<T>(env, type, id, list);
}

jint JNICALL registerNatives(JNIEnv* env, jclass type, const JNINativeMethod* methods, jint count) {
    Call call(env, "RegisterNatives");
    if (!call.ok) return JNI_ERR;
    const Type* const on = call.typeOf(type);
    if (on == nullptr || call.state.registerResult != JNI_OK) {
        call.raise("java/lang/NoSuchMethodError", "RegisterNatives");
        return on == nullptr ? JNI_ERR : call.state.registerResult;
    }
    for (jint i = 0; i < count; ++i)
        call.state.registrations.push_back(
            {on->name, methods[i].name, methods[i].signature, methods[i].fnPtr});
    return JNI_OK;
}

jobject JNICALL getStaticObjectField(JNIEnv* env, jclass, jfieldID id) {
    return Call(env, "GetStaticField").local(reinterpret_cast<Field*>(id)->object);
}
jint JNICALL getStaticIntField(JNIEnv* env, jclass, jfieldID id) {
    const Call call(env, "GetStaticField");
    return reinterpret_cast<Field*>(id)->plain.i;
}

// --- strings -------------------------------------------------------------------------------------

jstring JNICALL newStringUtf(JNIEnv* env, const char* text) {
    Call call(env, "NewStringUTF");
    if (!call.ok || text == nullptr) return nullptr;
    return call.local<jstring>(call.state.newString(fakejni::fromModifiedUtf8(text)));
}

jsize JNICALL getStringLength(JNIEnv* env, jstring string) {
    const Object* const target = Call(env, "GetStringLength").needed(string);
    return target == nullptr ? 0 : static_cast<jsize>(target->text.size());
}

jsize JNICALL getStringUtfLength(JNIEnv* env, jstring string) {
    const Object* const target = Call(env, "GetStringUTFLength").needed(string);
    return target == nullptr ? 0 : static_cast<jsize>(fakejni::toModifiedUtf8(target->text).size());
}

const char* JNICALL getStringUtfChars(JNIEnv* env, jstring string, jboolean* isCopy) {
    Call call(env, "GetStringUTFChars");
    Object* const target = call.ok ? call.needed(string) : nullptr;
    if (target == nullptr) return nullptr;
    if (isCopy != nullptr) *isCopy = JNI_TRUE;
    const std::string utf = fakejni::toModifiedUtf8(target->text);
    auto memory = std::make_unique<char[]>(utf.size() + 1);
    std::memcpy(memory.get(), utf.c_str(), utf.size() + 1);
    const char* const at = memory.get();
    call.state.lent.emplace(at, Lent{target, std::move(memory)});
    return at;
}

void JNICALL releaseStringUtfChars(JNIEnv* env, jstring string, const char* chars) {
    Call call(env, "ReleaseStringUTFChars", true);
    const auto found = call.state.lent.find(chars);
    if (found == call.state.lent.end() || found->second.object != call.target(string))
        return call.violation("of memory that was not lent");
    call.state.lent.erase(found);
}

void JNICALL getStringUtfRegion(JNIEnv* env, jstring string, jsize start, jsize length, char* out) {
    Call call(env, "GetStringUTFRegion");
    const Object* const target = call.needed(string);
    if (target == nullptr ||
        !call.inside(start, length, static_cast<jsize>(target->text.size()), kTextBounds))
        return;
    const std::string utf = fakejni::toModifiedUtf8(
        std::u16string_view(target->text)
            .substr(static_cast<std::size_t>(start), static_cast<std::size_t>(length)));
    std::memcpy(out, utf.c_str(), utf.size() + (call.state.closeRegions ? 1 : 0));
}

// --- arrays --------------------------------------------------------------------------------------

jsize JNICALL getArrayLength(JNIEnv* env, jarray array) {
    const Object* const target = Call(env, "GetArrayLength").arrayOf(array);
    return target == nullptr ? 0 : target->length;
}

jobjectArray JNICALL newObjectArray(JNIEnv* env, jsize length, jclass type, jobject initial) {
    Call call(env, "NewObjectArray");
    const Type* const element = call.ok ? call.typeOf(type) : nullptr;
    if (element == nullptr || length < 0) return nullptr;
    Object* const made = call.state.newObject(call.state.type("[L" + element->name + ";"));
    made->length = length;
    made->elements.assign(static_cast<std::size_t>(length), call.target(initial));
    return call.local<jobjectArray>(made);
}

// The slot, or null with a VM's exception.
Object** elementAt(Call& call, jobjectArray array, jsize index) {
    Object* const target = call.arrayOf(array);
    if (target == nullptr || !call.inside(index, 1, target->length, kArrayBounds)) return nullptr;
    return &target->elements[static_cast<std::size_t>(index)];
}

jobject JNICALL getObjectArrayElement(JNIEnv* env, jobjectArray array, jsize index) {
    Call call(env, "GetObjectArrayElement");
    Object** const slot = call.ok ? elementAt(call, array, index) : nullptr;
    return slot == nullptr ? nullptr : call.local(*slot);
}

void JNICALL setObjectArrayElement(JNIEnv* env, jobjectArray array, jsize index, jobject value) {
    Call call(env, "SetObjectArrayElement");
    if (Object** const slot = elementAt(call, array, index); slot != nullptr)
        *slot = call.target(value);
}

template <typename T, typename Array, char letter>
Array JNICALL newArray(JNIEnv* env, jsize length) {
    constexpr char type[] = {'[', letter, '\0'};
    Call call(env, "New<T>Array");
    if (!call.ok || length < 0) return nullptr;
    const auto count = static_cast<std::size_t>(length);
    return call.local<Array>(call.state.newArray(type, nullptr, sizeof(T), count));
}

// The bytes of a region, or null with a VM's exception.
template <typename T>
std::uint8_t* region(Call& call, jarray array, jsize start, jsize length) {
    Object* const target = call.arrayOf(array);
    if (target == nullptr || !call.inside(start, length, target->length, kArrayBounds))
        return nullptr;
    return target->raw.data() + static_cast<std::size_t>(start) * sizeof(T);
}

template <typename T, typename Array>
void JNICALL getRegion(JNIEnv* env, Array array, jsize start, jsize length, T* out) {
    Call call(env, "Get<T>ArrayRegion");
    const std::uint8_t* const at = region<T>(call, array, start, length);
    if (at != nullptr && length > 0)
        std::memcpy(out, at, static_cast<std::size_t>(length) * sizeof(T));
}

template <typename T, typename Array>
void JNICALL setRegion(JNIEnv* env, Array array, jsize start, jsize length, const T* from) {
    Call call(env, "Set<T>ArrayRegion");
    std::uint8_t* const at = region<T>(call, array, start, length);
    if (at != nullptr && length > 0)
        std::memcpy(at, from, static_cast<std::size_t>(length) * sizeof(T));
}

// --- the table -----------------------------------------------------------------------------------

void missing() {
    notOffered("a JNI function that was called");
}

JNINativeInterface_ buildTable() {
    JNINativeInterface_ t;
    static_assert(sizeof t % sizeof(void*) == 0);
    for (std::size_t i = 0; i < sizeof t / sizeof(void*); ++i) {
        void (*const entry)() = missing;
        std::memcpy(reinterpret_cast<char*>(&t) + i * sizeof(void*), &entry, sizeof entry);
    }
    t.FindClass = findClass;
    t.GetObjectClass = getObjectClass;
    t.NewGlobalRef = newGlobalRef;
    t.DeleteLocalRef = deleteLocalRef;
    t.DeleteGlobalRef = deleteGlobalRef;
    t.ExceptionDescribe = exceptionDescribe;
    t.ExceptionClear = exceptionClear;
    t.ExceptionCheck = exceptionCheck;
    t.GetMethodID = getMethodId;
    t.GetStaticMethodID = getStaticMethodId;
    t.GetStaticFieldID = getStaticFieldId;
    t.CallVoidMethodV = callMethod<void>;
    t.CallObjectMethodV = callMethod<jobject>;
    t.CallLongMethodV = callMethod<jlong>;
    t.CallStaticVoidMethodV = callStaticMethod<void>;
    t.CallStaticObjectMethodV = callStaticMethod<jobject>;
    t.CallStaticIntMethodV = callStaticMethod<jint>;
    t.RegisterNatives = registerNatives;
    t.GetStaticObjectField = getStaticObjectField;
    t.GetStaticIntField = getStaticIntField;
    t.NewStringUTF = newStringUtf;
    t.GetStringLength = getStringLength;
    t.GetStringUTFLength = getStringUtfLength;
    t.GetStringUTFChars = getStringUtfChars;
    t.ReleaseStringUTFChars = releaseStringUtfChars;
    t.GetStringUTFRegion = getStringUtfRegion;
    t.GetArrayLength = getArrayLength;
    t.NewObjectArray = newObjectArray;
    t.GetObjectArrayElement = getObjectArrayElement;
    t.SetObjectArrayElement = setObjectArrayElement;
    t.NewByteArray = newArray<jbyte, jbyteArray, 'B'>;
    t.NewIntArray = newArray<jint, jintArray, 'I'>;
    t.NewLongArray = newArray<jlong, jlongArray, 'J'>;
    t.GetByteArrayRegion = getRegion<jbyte, jbyteArray>;
    t.GetIntArrayRegion = getRegion<jint, jintArray>;
    t.GetLongArrayRegion = getRegion<jlong, jlongArray>;
    t.SetByteArrayRegion = setRegion<jbyte, jbyteArray>;
    t.SetIntArrayRegion = setRegion<jint, jintArray>;
    t.SetLongArrayRegion = setRegion<jlong, jlongArray>;
    return t;
}

}  // namespace

const JNINativeInterface_* fakejni::functionTable() {
    static const JNINativeInterface_ table = buildTable();
    return &table;
}
