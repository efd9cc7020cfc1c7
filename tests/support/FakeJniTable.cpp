// The JNI function table of FakeJni. Functions that the table does not offer end the test program
// with a message instead of jumping to nowhere.
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
using fakejni::Slot;
using fakejni::Type;
using State = FakeJni::State;

namespace {

Env* in(JNIEnv* env) {
    return static_cast<Env*>(env);
}
State& of(JNIEnv* env) {
    return *in(env)->state;
}

template <typename R = jobject>
R local(JNIEnv* env, Object* object) {
    return static_cast<R>(reinterpret_cast<jobject>(of(env).newRef(object, Kind::local, in(env))));
}

// The type behind a jclass; null and a violation when it is none.
Type* typeOf(JNIEnv* env, jclass type, const char* function) {
    const Object* const mirror = of(env).target(type, function);
    if (mirror != nullptr && mirror->mirrored != nullptr) return mirror->mirrored;
    of(env).violation(std::string(function) + " without a class");
    return nullptr;
}

// The target of a reference that must not be null.
Object* needed(JNIEnv* env, jobject object, const char* function) {
    Object* const target = of(env).target(object, function);
    if (target == nullptr) of(env).violation(std::string(function) + " with a null object");
    return target;
}

template <typename T>
T pick(const jvalue& v) {
    if constexpr (std::is_same_v<T, jboolean>)
        return v.z;
    else if constexpr (std::is_same_v<T, jbyte>)
        return v.b;
    else if constexpr (std::is_same_v<T, jchar>)
        return v.c;
    else if constexpr (std::is_same_v<T, jshort>)
        return v.s;
    else if constexpr (std::is_same_v<T, jint>)
        return v.i;
    else if constexpr (std::is_same_v<T, jlong>)
        return v.j;
    else if constexpr (std::is_same_v<T, jfloat>)
        return v.f;
    else if constexpr (std::is_same_v<T, jdouble>)
        return v.d;
    else if constexpr (std::is_same_v<T, jobject>)
        return v.l;
}

template <typename T>
jvalue pack(T value) {
    jvalue v{};
    if constexpr (std::is_same_v<T, jboolean>)
        v.z = value;
    else if constexpr (std::is_same_v<T, jbyte>)
        v.b = value;
    else if constexpr (std::is_same_v<T, jchar>)
        v.c = value;
    else if constexpr (std::is_same_v<T, jshort>)
        v.s = value;
    else if constexpr (std::is_same_v<T, jint>)
        v.i = value;
    else if constexpr (std::is_same_v<T, jlong>)
        v.j = value;
    else if constexpr (std::is_same_v<T, jfloat>)
        v.f = value;
    else if constexpr (std::is_same_v<T, jdouble>)
        v.d = value;
    else if constexpr (std::is_same_v<T, jobject>)
        v.l = value;
    return v;
}

// --- versions, classes, references
// ------------------------------------------------------------------

jint JNICALL getVersion(JNIEnv*) {
    return JNI_VERSION_1_8;
}

jint JNICALL getJavaVm(JNIEnv* env, JavaVM** vm) {
    const std::lock_guard hold(of(env).lock);
    if (!of(env).enter(in(env), "GetJavaVM", true)) return JNI_ERR;
    *vm = of(env).vm;
    return JNI_OK;
}

jclass JNICALL findClass(JNIEnv* env, const char* name) {
    State& state = of(env);
    const std::lock_guard hold(state.lock);
    if (!state.enter(in(env), "FindClass")) return nullptr;
    Type* const type = state.type(name);
    if (type == nullptr) {
        state.throwOn(in(env), "java/lang/NoClassDefFoundError", name);
        return nullptr;
    }
    return local<jclass>(env, type->mirror);
}

jclass JNICALL getObjectClass(JNIEnv* env, jobject object) {
    const std::lock_guard hold(of(env).lock);
    of(env).enter(in(env), "GetObjectClass");
    Object* const target = needed(env, object, "GetObjectClass");
    return target == nullptr ? nullptr : local<jclass>(env, target->type->mirror);
}

jclass JNICALL getSuperclass(JNIEnv* env, jclass sub) {
    const std::lock_guard hold(of(env).lock);
    of(env).enter(in(env), "GetSuperclass");
    Type* const type = typeOf(env, sub, "GetSuperclass");
    return type == nullptr || type->super == nullptr ? nullptr
                                                     : local<jclass>(env, type->super->mirror);
}

bool isSubtype(const Type* type, const Type* of) {
    for (; type != nullptr; type = type->super)
        if (type == of) return true;
    return false;
}

jboolean JNICALL isAssignableFrom(JNIEnv* env, jclass sub, jclass super) {
    const std::lock_guard hold(of(env).lock);
    of(env).enter(in(env), "IsAssignableFrom");
    return isSubtype(typeOf(env, sub, "IsAssignableFrom"), typeOf(env, super, "IsAssignableFrom"));
}

jboolean JNICALL isInstanceOf(JNIEnv* env, jobject object, jclass type) {
    const std::lock_guard hold(of(env).lock);
    of(env).enter(in(env), "IsInstanceOf");
    const Object* const target = of(env).target(object, "IsInstanceOf");
    return target == nullptr || isSubtype(target->type, typeOf(env, type, "IsInstanceOf"));
}

jboolean JNICALL isSameObject(JNIEnv* env, jobject one, jobject other) {
    const std::lock_guard hold(of(env).lock);
    of(env).enter(in(env), "IsSameObject", true);
    return of(env).target(one, "IsSameObject") == of(env).target(other, "IsSameObject");
}

template <Kind kind>
jobject newReference(JNIEnv* env, jobject object, const char* function) {
    State& state = of(env);
    const std::lock_guard hold(state.lock);
    if (!state.enter(in(env), function)) return nullptr;
    return reinterpret_cast<jobject>(state.newRef(state.target(object, function), kind,
                                                  kind == Kind::local ? in(env) : nullptr));
}

jobject JNICALL newLocalRef(JNIEnv* env, jobject object) {
    return newReference<Kind::local>(env, object, "NewLocalRef");
}
jobject JNICALL newGlobalRef(JNIEnv* env, jobject object) {
    return newReference<Kind::global>(env, object, "NewGlobalRef");
}
jobject JNICALL newWeakGlobalRef(JNIEnv* env, jobject object) {
    return newReference<Kind::weak>(env, object, "NewWeakGlobalRef");
}

void deleteReference(JNIEnv* env, jobject object, Kind kind, const char* function) {
    State& state = of(env);
    const std::lock_guard hold(state.lock);
    state.enter(in(env), function, true);
    if (object == nullptr) return;
    auto* const ref = reinterpret_cast<Ref*>(object);
    const bool fits = ref->kind == kind || (kind == Kind::local && ref->kind == Kind::caller);
    if (!ref->alive || !fits) {
        state.violation(std::string(function) +
                        (ref->alive ? " of another kind of reference" : " of a deleted reference"));
        return;
    }
    ref->alive = false;
    if (ref->kind == Kind::local) {
        if (ref->env != in(env)) state.violation("DeleteLocalRef on another thread");
        ref->env->locals.erase(ref);
    } else if (ref->kind != Kind::caller) {
        --state.globals;
    }
}

void JNICALL deleteLocalRef(JNIEnv* env, jobject object) {
    deleteReference(env, object, Kind::local, "DeleteLocalRef");
}
void JNICALL deleteGlobalRef(JNIEnv* env, jobject object) {
    deleteReference(env, object, Kind::global, "DeleteGlobalRef");
}
void JNICALL deleteWeakGlobalRef(JNIEnv* env, jobject object) {
    deleteReference(env, object, Kind::weak, "DeleteWeakGlobalRef");
}

jint JNICALL ensureLocalCapacity(JNIEnv*, jint) {
    return JNI_OK;
}

jint JNICALL pushLocalFrame(JNIEnv* env, jint) {
    const std::lock_guard hold(of(env).lock);
    if (!of(env).enter(in(env), "PushLocalFrame", true)) return JNI_ENOMEM;
    ++in(env)->frame;
    return JNI_OK;
}

jobject JNICALL popLocalFrame(JNIEnv* env, jobject result) {
    State& state = of(env);
    const std::lock_guard hold(state.lock);
    state.enter(in(env), "PopLocalFrame", true);
    Object* const kept = state.target(result, "PopLocalFrame");
    Env* const mine = in(env);
    if (mine->frame == 0) state.violation("PopLocalFrame without a frame");
    for (auto it = mine->locals.begin(); it != mine->locals.end();) {
        if ((*it)->frame < mine->frame) {
            ++it;
            continue;
        }
        (*it)->alive = false;
        it = mine->locals.erase(it);
    }
    --mine->frame;
    return local(env, kept);
}

jobjectRefType JNICALL getObjectRefType(JNIEnv* env, jobject object) {
    const std::lock_guard hold(of(env).lock);
    const auto* const ref = reinterpret_cast<const Ref*>(object);
    if (ref == nullptr || !ref->alive) return JNIInvalidRefType;
    if (ref->kind == Kind::global) return JNIGlobalRefType;
    return ref->kind == Kind::weak ? JNIWeakGlobalRefType : JNILocalRefType;
}

// --- exceptions
// -------------------------------------------------------------------------------------

jint JNICALL throwObject(JNIEnv* env, jthrowable thrown) {
    const std::lock_guard hold(of(env).lock);
    of(env).enter(in(env), "Throw");
    in(env)->pending = needed(env, thrown, "Throw");
    return JNI_OK;
}

jint JNICALL throwNew(JNIEnv* env, jclass type, const char* message) {
    const std::lock_guard hold(of(env).lock);
    of(env).enter(in(env), "ThrowNew");
    Type* const thrown = typeOf(env, type, "ThrowNew");
    if (thrown == nullptr) return JNI_ERR;
    of(env).throwOn(in(env), thrown->name, message == nullptr ? "" : message);
    return JNI_OK;
}

jthrowable JNICALL exceptionOccurred(JNIEnv* env) {
    const std::lock_guard hold(of(env).lock);
    of(env).enter(in(env), "ExceptionOccurred", true);
    return local<jthrowable>(env, in(env)->pending);
}

// Unlike today's VMs it leaves the exception pending: code that relies on the side effect is found.
void JNICALL exceptionDescribe(JNIEnv* env) {
    const std::lock_guard hold(of(env).lock);
    of(env).enter(in(env), "ExceptionDescribe", true);
    if (const Object* const thrown = in(env)->pending; thrown != nullptr)
        of(env).described.push_back(thrown->type->name + ": " +
                                    fakejni::toModifiedUtf8(thrown->text));
}

void JNICALL exceptionClear(JNIEnv* env) {
    const std::lock_guard hold(of(env).lock);
    of(env).enter(in(env), "ExceptionClear", true);
    in(env)->pending = nullptr;
}

jboolean JNICALL exceptionCheck(JNIEnv* env) {
    const std::lock_guard hold(of(env).lock);
    of(env).enter(in(env), "ExceptionCheck", true);
    return in(env)->pending != nullptr;
}

void JNICALL fatalError(JNIEnv*, const char* message) {
    std::fprintf(stderr, "FatalError: %s\n", message);
    std::abort();
}

// --- methods
// ----------------------------------------------------------------------------------------

jmethodID findMethod(JNIEnv* env, jclass type, const char* name, const char* signature,
                     bool isStatic, const char* function) {
    State& state = of(env);
    const std::lock_guard hold(state.lock);
    if (!state.enter(in(env), function)) return nullptr;
    for (Type* at = typeOf(env, type, function); at != nullptr; at = at->super)
        for (Method& method : at->methods)
            if (method.isStatic == isStatic && method.name == name && method.signature == signature)
                return reinterpret_cast<jmethodID>(&method);
    state.throwOn(in(env), "java/lang/NoSuchMethodError", name);
    return nullptr;
}

jmethodID JNICALL getMethodId(JNIEnv* env, jclass type, const char* name, const char* signature) {
    return findMethod(env, type, name, signature, false, "GetMethodID");
}
jmethodID JNICALL getStaticMethodId(JNIEnv* env, jclass type, const char* name,
                                    const char* signature) {
    return findMethod(env, type, name, signature, true, "GetStaticMethodID");
}

// The argument letters of a signature: one per argument, L for every reference.
std::string argumentKinds(const std::string& signature) {
    std::string kinds;
    for (std::size_t i = 1; i < signature.size() && signature[i] != ')'; ++i) {
        const bool isReference = signature[i] == 'L' || signature[i] == '[';
        kinds += isReference ? 'L' : signature[i];
        while (signature[i] == '[') ++i;
        if (signature[i] == 'L') i = signature.find(';', i);
    }
    return kinds;
}

FakeJni::Args arguments(const Method& method, va_list list) {
    FakeJni::Args out;
    for (const char kind : argumentKinds(method.signature)) {
        switch (kind) {
            case 'Z':
                out.push_back(pack(static_cast<jboolean>(va_arg(list, int))));
                break;
            case 'B':
                out.push_back(pack(static_cast<jbyte>(va_arg(list, int))));
                break;
            case 'C':
                out.push_back(pack(static_cast<jchar>(va_arg(list, int))));
                break;
            case 'S':
                out.push_back(pack(static_cast<jshort>(va_arg(list, int))));
                break;
            case 'I':
                out.push_back(pack(va_arg(list, jint)));
                break;
            case 'J':
                out.push_back(pack(va_arg(list, jlong)));
                break;
            case 'F':
                out.push_back(pack(static_cast<jfloat>(va_arg(list, double))));
                break;
            case 'D':
                out.push_back(pack(va_arg(list, jdouble)));
                break;
            default:
                out.push_back(pack(va_arg(list, jobject)));
                break;
        }
    }
    return out;
}

FakeJni::Args arguments(const Method& method, const jvalue* values) {
    const std::size_t count = argumentKinds(method.signature).size();
    return count == 0 ? FakeJni::Args() : FakeJni::Args(values, values + count);
}

template <typename T, typename List>
T invoke(JNIEnv* env, jobject self, jmethodID id, List list, const char* function) {
    auto* const method = reinterpret_cast<Method*>(id);
    State& state = of(env);
    bool failing = false;
    {
        const std::lock_guard hold(state.lock);
        failing = !state.enter(in(env), function);
        if (method == nullptr) state.violation(std::string(function) + " of a null method");
    }
    if constexpr (std::is_void_v<T>) {
        if (!failing && method != nullptr)
            method->body(env, method->isStatic ? nullptr : self, arguments(*method, list));
    } else {
        if (failing || method == nullptr) return T();
        const jvalue result =
            method->body(env, method->isStatic ? nullptr : self, arguments(*method, list));
        const std::lock_guard hold(state.lock);
        if (in(env)->pending != nullptr) return T();
        if constexpr (std::is_same_v<T, jobject>)
            return local(env, state.target(result.l, function));
        else
            return pick<T>(result);
    }
}

template <typename T>
T JNICALL callV(JNIEnv* env, jobject self, jmethodID id, va_list list) {
    return invoke<T, va_list>(env, self, id, list, "CallMethod");
}
template <typename T>
T JNICALL callA(JNIEnv* env, jobject self, jmethodID id, const jvalue* list) {
    return invoke<T>(env, self, id, list, "CallMethod");
}
template <typename T>
T JNICALL callNonvirtualV(JNIEnv* env, jobject self, jclass, jmethodID id, va_list list) {
    return invoke<T, va_list>(env, self, id, list, "CallNonvirtualMethod");
}
template <typename T>
T JNICALL callNonvirtualA(JNIEnv* env, jobject self, jclass, jmethodID id, const jvalue* list) {
    return invoke<T>(env, self, id, list, "CallNonvirtualMethod");
}
template <typename T>
T JNICALL callStaticV(JNIEnv* env, jclass self, jmethodID id, va_list list) {
    return invoke<T, va_list>(env, self, id, list, "CallStaticMethod");
}
template <typename T>
T JNICALL callStaticA(JNIEnv* env, jclass self, jmethodID id, const jvalue* list) {
    return invoke<T>(env, self, id, list, "CallStaticMethod");
}

jobject JNICALL allocObject(JNIEnv* env, jclass type) {
    State& state = of(env);
    const std::lock_guard hold(state.lock);
    if (!state.enter(in(env), "NewObject")) return nullptr;
    Type* const made = typeOf(env, type, "NewObject");
    return made == nullptr ? nullptr : local(env, state.newObject(made));
}

template <typename List>
jobject construct(JNIEnv* env, jclass type, jmethodID id, List list) {
    jobject const made = allocObject(env, type);
    if (made == nullptr) return nullptr;
    invoke<void, List>(env, made, id, list, "NewObject<init>");
    if (in(env)->pending == nullptr) return made;
    deleteLocalRef(env, made);
    return nullptr;
}

jobject JNICALL newObjectV(JNIEnv* env, jclass type, jmethodID id, va_list list) {
    return construct<va_list>(env, type, id, list);
}
jobject JNICALL newObjectA(JNIEnv* env, jclass type, jmethodID id, const jvalue* list) {
    return construct(env, type, id, list);
}

jint JNICALL registerNatives(JNIEnv* env, jclass type, const JNINativeMethod* methods, jint count) {
    State& state = of(env);
    const std::lock_guard hold(state.lock);
    if (!state.enter(in(env), "RegisterNatives")) return JNI_ERR;
    Type* const on = typeOf(env, type, "RegisterNatives");
    if (on == nullptr || state.registerResult != JNI_OK) {
        state.throwOn(in(env), "java/lang/NoSuchMethodError", "RegisterNatives");
        return on == nullptr ? JNI_ERR : state.registerResult;
    }
    for (jint i = 0; i < count; ++i)
        state.registrations.push_back(
            {on->name, methods[i].name, methods[i].signature, methods[i].fnPtr});
    return JNI_OK;
}

jint JNICALL unregisterNatives(JNIEnv*, jclass) {
    return JNI_OK;
}

// --- fields
// -----------------------------------------------------------------------------------------

jfieldID findField(JNIEnv* env, jclass type, const char* name, const char* signature, bool isStatic,
                   const char* function) {
    State& state = of(env);
    const std::lock_guard hold(state.lock);
    if (!state.enter(in(env), function)) return nullptr;
    for (Type* at = typeOf(env, type, function); at != nullptr; at = at->super)
        for (Field& field : at->fields)
            if (field.isStatic == isStatic && field.name == name && field.signature == signature)
                return reinterpret_cast<jfieldID>(&field);
    state.throwOn(in(env), "java/lang/NoSuchFieldError", name);
    return nullptr;
}

jfieldID JNICALL getFieldId(JNIEnv* env, jclass type, const char* name, const char* signature) {
    return findField(env, type, name, signature, false, "GetFieldID");
}
jfieldID JNICALL getStaticFieldId(JNIEnv* env, jclass type, const char* name,
                                  const char* signature) {
    return findField(env, type, name, signature, true, "GetStaticFieldID");
}

template <typename T>
T read(JNIEnv* env, const Slot& slot) {
    if constexpr (std::is_same_v<T, jobject>)
        return local(env, slot.object);
    else
        return pick<T>(slot.plain);
}

template <typename T>
void write(JNIEnv* env, Slot& slot, T value) {
    if constexpr (std::is_same_v<T, jobject>)
        slot.object = of(env).target(value, "SetField");
    else
        slot.plain = pack(value);
}

template <typename T>
T JNICALL getField(JNIEnv* env, jobject object, jfieldID id) {
    const std::lock_guard hold(of(env).lock);
    of(env).enter(in(env), "GetField");
    Object* const target = needed(env, object, "GetField");
    return target == nullptr ? T() : read<T>(env, target->fields[reinterpret_cast<Field*>(id)]);
}
template <typename T>
void JNICALL setField(JNIEnv* env, jobject object, jfieldID id, T value) {
    const std::lock_guard hold(of(env).lock);
    of(env).enter(in(env), "SetField");
    if (Object* const target = needed(env, object, "SetField"); target != nullptr)
        write<T>(env, target->fields[reinterpret_cast<Field*>(id)], value);
}
template <typename T>
T JNICALL getStaticField(JNIEnv* env, jclass, jfieldID id) {
    const std::lock_guard hold(of(env).lock);
    of(env).enter(in(env), "GetStaticField");
    return read<T>(env, reinterpret_cast<Field*>(id)->value);
}
template <typename T>
void JNICALL setStaticField(JNIEnv* env, jclass, jfieldID id, T value) {
    const std::lock_guard hold(of(env).lock);
    of(env).enter(in(env), "SetStaticField");
    write<T>(env, reinterpret_cast<Field*>(id)->value, value);
}

// --- strings
// ----------------------------------------------------------------------------------------

const std::uint8_t* lend(JNIEnv* env, const char* how, Object* object, const void* bytes,
                         std::size_t size) {
    auto memory = std::make_unique<std::uint8_t[]>(size);
    if (size != 0) std::memcpy(memory.get(), bytes, size);
    const std::uint8_t* const at = memory.get();
    of(env).lent.emplace(at, Lent{how, object, std::move(memory)});
    return at;
}

// The memory that was lent there; a violation when it was not, or for another object.
bool takeBack(JNIEnv* env, const char* how, jobject object, const void* at, Lent* lent) {
    State& state = of(env);
    const auto found = state.lent.find(at);
    if (found == state.lent.end() || found->second.how != how ||
        found->second.object != state.target(object, how)) {
        state.violation(std::string("release of memory that was not lent by ") + how);
        return false;
    }
    *lent = std::move(found->second);
    state.lent.erase(found);
    return true;
}

jstring JNICALL newString(JNIEnv* env, const jchar* text, jsize length) {
    const std::lock_guard hold(of(env).lock);
    if (!of(env).enter(in(env), "NewString")) return nullptr;
    return local<jstring>(env, of(env).newString(std::u16string(text, text + length)));
}

jstring JNICALL newStringUtf(JNIEnv* env, const char* text) {
    const std::lock_guard hold(of(env).lock);
    if (!of(env).enter(in(env), "NewStringUTF") || text == nullptr) return nullptr;
    return local<jstring>(env, of(env).newString(fakejni::fromModifiedUtf8(text)));
}

jsize JNICALL getStringLength(JNIEnv* env, jstring string) {
    const std::lock_guard hold(of(env).lock);
    of(env).enter(in(env), "GetStringLength");
    const Object* const target = needed(env, string, "GetStringLength");
    return target == nullptr ? 0 : static_cast<jsize>(target->text.size());
}

jsize JNICALL getStringUtfLength(JNIEnv* env, jstring string) {
    const std::lock_guard hold(of(env).lock);
    of(env).enter(in(env), "GetStringUTFLength");
    const Object* const target = needed(env, string, "GetStringUTFLength");
    return target == nullptr ? 0 : static_cast<jsize>(fakejni::toModifiedUtf8(target->text).size());
}

const char* JNICALL getStringUtfChars(JNIEnv* env, jstring string, jboolean* isCopy) {
    const std::lock_guard hold(of(env).lock);
    if (!of(env).enter(in(env), "GetStringUTFChars")) return nullptr;
    Object* const target = needed(env, string, "GetStringUTFChars");
    if (target == nullptr) return nullptr;
    if (isCopy != nullptr) *isCopy = JNI_TRUE;
    const std::string utf = fakejni::toModifiedUtf8(target->text);
    return reinterpret_cast<const char*>(
        lend(env, "GetStringUTFChars", target, utf.c_str(), utf.size() + 1));
}

void JNICALL releaseStringUtfChars(JNIEnv* env, jstring string, const char* chars) {
    const std::lock_guard hold(of(env).lock);
    of(env).enter(in(env), "ReleaseStringUTFChars", true);
    Lent lent;
    takeBack(env, "GetStringUTFChars", string, chars, &lent);
}

const jchar* JNICALL getStringChars(JNIEnv* env, jstring string, jboolean* isCopy) {
    const std::lock_guard hold(of(env).lock);
    if (!of(env).enter(in(env), "GetStringChars")) return nullptr;
    Object* const target = needed(env, string, "GetStringChars");
    if (target == nullptr) return nullptr;
    if (isCopy != nullptr) *isCopy = JNI_TRUE;
    return reinterpret_cast<const jchar*>(lend(env, "GetStringChars", target, target->text.data(),
                                               target->text.size() * sizeof(jchar)));
}

void JNICALL releaseStringChars(JNIEnv* env, jstring string, const jchar* chars) {
    const std::lock_guard hold(of(env).lock);
    of(env).enter(in(env), "ReleaseStringChars", true);
    Lent lent;
    takeBack(env, "GetStringChars", string, chars, &lent);
}

// The part of a string, or null with the exception of a VM when it reaches past the end.
bool region(JNIEnv* env, jstring string, jsize start, jsize length, const char* function,
            std::u16string_view* part) {
    State& state = of(env);
    state.enter(in(env), function);
    const Object* const target = needed(env, string, function);
    if (target == nullptr) return false;
    const auto size = static_cast<jsize>(target->text.size());
    if (start < 0 || length < 0 || start > size - length) {
        state.throwOn(in(env), "java/lang/StringIndexOutOfBoundsException", function);
        return false;
    }
    *part = std::u16string_view(target->text)
                .substr(static_cast<std::size_t>(start), static_cast<std::size_t>(length));
    return true;
}

void JNICALL getStringRegion(JNIEnv* env, jstring string, jsize start, jsize length, jchar* out) {
    const std::lock_guard hold(of(env).lock);
    std::u16string_view part;
    if (region(env, string, start, length, "GetStringRegion", &part) && !part.empty())
        std::memcpy(out, part.data(), part.size() * sizeof(jchar));
}

void JNICALL getStringUtfRegion(JNIEnv* env, jstring string, jsize start, jsize length, char* out) {
    const std::lock_guard hold(of(env).lock);
    std::u16string_view part;
    if (!region(env, string, start, length, "GetStringUTFRegion", &part)) return;
    const std::string utf = fakejni::toModifiedUtf8(part);
    std::memcpy(out, utf.c_str(), utf.size() + (of(env).closeRegions ? 1 : 0));
}

// --- arrays
// -----------------------------------------------------------------------------------------

Object* arrayOf(JNIEnv* env, jobject array, const char* function) {
    Object* const target = needed(env, array, function);
    if (target == nullptr || target->length >= 0) return target;
    of(env).violation(std::string(function) + " of no array");
    return nullptr;
}

jsize JNICALL getArrayLength(JNIEnv* env, jarray array) {
    const std::lock_guard hold(of(env).lock);
    of(env).enter(in(env), "GetArrayLength");
    const Object* const target = arrayOf(env, array, "GetArrayLength");
    return target == nullptr ? 0 : target->length;
}

jobjectArray JNICALL newObjectArray(JNIEnv* env, jsize length, jclass type, jobject initial) {
    State& state = of(env);
    const std::lock_guard hold(state.lock);
    if (!state.enter(in(env), "NewObjectArray")) return nullptr;
    Type* const element = typeOf(env, type, "NewObjectArray");
    if (element == nullptr || length < 0) return nullptr;
    Object* const made = state.newObject(state.type("[L" + element->name + ";"));
    made->length = length;
    made->elements.assign(static_cast<std::size_t>(length),
                          state.target(initial, "NewObjectArray"));
    return local<jobjectArray>(env, made);
}

// The slot, or null with a VM's exception.
Object** elementAt(JNIEnv* env, jobjectArray array, jsize index, const char* function) {
    Object* const target = arrayOf(env, array, function);
    if (target == nullptr) return nullptr;
    if (index >= 0 && index < target->length)
        return &target->elements[static_cast<std::size_t>(index)];
    of(env).throwOn(in(env), "java/lang/ArrayIndexOutOfBoundsException", function);
    return nullptr;
}

jobject JNICALL getObjectArrayElement(JNIEnv* env, jobjectArray array, jsize index) {
    const std::lock_guard hold(of(env).lock);
    if (!of(env).enter(in(env), "GetObjectArrayElement")) return nullptr;
    Object** const slot = elementAt(env, array, index, "GetObjectArrayElement");
    return slot == nullptr ? nullptr : local(env, *slot);
}

void JNICALL setObjectArrayElement(JNIEnv* env, jobjectArray array, jsize index, jobject value) {
    const std::lock_guard hold(of(env).lock);
    of(env).enter(in(env), "SetObjectArrayElement");
    Object** const slot = elementAt(env, array, index, "SetObjectArrayElement");
    if (slot != nullptr) *slot = of(env).target(value, "SetObjectArrayElement");
}

template <typename T>
constexpr const char* arrayName() {
    if constexpr (std::is_same_v<T, jboolean>)
        return "[Z";
    else if constexpr (std::is_same_v<T, jbyte>)
        return "[B";
    else if constexpr (std::is_same_v<T, jchar>)
        return "[C";
    else if constexpr (std::is_same_v<T, jshort>)
        return "[S";
    else if constexpr (std::is_same_v<T, jint>)
        return "[I";
    else if constexpr (std::is_same_v<T, jlong>)
        return "[J";
    else if constexpr (std::is_same_v<T, jfloat>)
        return "[F";
    else
        return "[D";
}

template <typename T, typename Array>
Array JNICALL newArray(JNIEnv* env, jsize length) {
    State& state = of(env);
    const std::lock_guard hold(state.lock);
    if (!state.enter(in(env), "New<T>Array") || length < 0) return nullptr;
    Object* const made = state.newObject(state.type(arrayName<T>()));
    made->length = length;
    made->width = sizeof(T);
    made->raw.resize(static_cast<std::size_t>(length) * sizeof(T));
    return local<Array>(env, made);
}

template <typename T, typename Array>
T* JNICALL getElements(JNIEnv* env, Array array, jboolean* isCopy) {
    const std::lock_guard hold(of(env).lock);
    if (!of(env).enter(in(env), "Get<T>ArrayElements")) return nullptr;
    Object* const target = arrayOf(env, array, "Get<T>ArrayElements");
    if (target == nullptr) return nullptr;
    if (isCopy != nullptr) *isCopy = JNI_TRUE;
    return reinterpret_cast<T*>(const_cast<std::uint8_t*>(
        lend(env, "Get<T>ArrayElements", target, target->raw.data(), target->raw.size())));
}

void returnElements(JNIEnv* env, jarray array, void* elements, jint mode) {
    State& state = of(env);
    const std::lock_guard hold(state.lock);
    state.enter(in(env), "Release<T>ArrayElements", true);
    const auto found = state.lent.find(elements);
    Object* const target = state.target(array, "Release<T>ArrayElements");
    if (mode != JNI_ABORT && found != state.lent.end() && target != nullptr && !target->raw.empty())
        std::memcpy(target->raw.data(), elements, target->raw.size());
    if (mode == JNI_COMMIT) return;
    Lent lent;
    takeBack(env, "Get<T>ArrayElements", array, elements, &lent);
}

template <typename T, typename Array>
void JNICALL releaseElements(JNIEnv* env, Array array, T* elements, jint mode) {
    returnElements(env, array, elements, mode);
}

// The bytes of a region, or null with a VM's exception.
std::uint8_t* arrayRegion(JNIEnv* env, jarray array, jsize start, jsize length,
                          const char* function) {
    of(env).enter(in(env), function);
    Object* const target = arrayOf(env, array, function);
    if (target == nullptr) return nullptr;
    if (start >= 0 && length >= 0 && start <= target->length - length)
        return target->raw.data() + static_cast<std::size_t>(start) * target->width;
    of(env).throwOn(in(env), "java/lang/ArrayIndexOutOfBoundsException", function);
    return nullptr;
}

template <typename T, typename Array>
void JNICALL getRegion(JNIEnv* env, Array array, jsize start, jsize length, T* out) {
    const std::lock_guard hold(of(env).lock);
    const std::uint8_t* const at = arrayRegion(env, array, start, length, "Get<T>ArrayRegion");
    if (at != nullptr && length > 0)
        std::memcpy(out, at, static_cast<std::size_t>(length) * sizeof(T));
}

template <typename T, typename Array>
void JNICALL setRegion(JNIEnv* env, Array array, jsize start, jsize length, const T* from) {
    const std::lock_guard hold(of(env).lock);
    std::uint8_t* const at = arrayRegion(env, array, start, length, "Set<T>ArrayRegion");
    if (at != nullptr && length > 0)
        std::memcpy(at, from, static_cast<std::size_t>(length) * sizeof(T));
}

void* JNICALL getCritical(JNIEnv* env, jarray array, jboolean* isCopy) {
    return getElements<jbyte>(env, array, isCopy);
}
void JNICALL releaseCritical(JNIEnv* env, jarray array, void* elements, jint mode) {
    returnElements(env, array, elements, mode);
}

// --- the table
// --------------------------------------------------------------------------------------

[[noreturn]] void notOffered() {
    std::fprintf(stderr, "a JNI function was called that FakeJni does not offer\n");
    std::abort();
}

JNINativeInterface_ buildTable() {
    JNINativeInterface_ t;
    static_assert(sizeof t % sizeof(void*) == 0);
    for (std::size_t i = 0; i < sizeof t / sizeof(void*); ++i) {
        void (*const missing)() = notOffered;
        std::memcpy(reinterpret_cast<char*>(&t) + i * sizeof(void*), &missing, sizeof missing);
    }
    t.GetVersion = getVersion;
    t.GetJavaVM = getJavaVm;
    t.FindClass = findClass;
    t.GetObjectClass = getObjectClass;
    t.GetSuperclass = getSuperclass;
    t.IsAssignableFrom = isAssignableFrom;
    t.IsInstanceOf = isInstanceOf;
    t.IsSameObject = isSameObject;
    t.NewLocalRef = newLocalRef;
    t.NewGlobalRef = newGlobalRef;
    t.NewWeakGlobalRef = newWeakGlobalRef;
    t.DeleteLocalRef = deleteLocalRef;
    t.DeleteGlobalRef = deleteGlobalRef;
    t.DeleteWeakGlobalRef = deleteWeakGlobalRef;
    t.EnsureLocalCapacity = ensureLocalCapacity;
    t.PushLocalFrame = pushLocalFrame;
    t.PopLocalFrame = popLocalFrame;
    t.GetObjectRefType = getObjectRefType;
    t.Throw = throwObject;
    t.ThrowNew = throwNew;
    t.ExceptionOccurred = exceptionOccurred;
    t.ExceptionDescribe = exceptionDescribe;
    t.ExceptionClear = exceptionClear;
    t.ExceptionCheck = exceptionCheck;
    t.FatalError = fatalError;
    t.GetMethodID = getMethodId;
    t.GetStaticMethodID = getStaticMethodId;
    t.AllocObject = allocObject;
    t.NewObjectV = newObjectV;
    t.NewObjectA = newObjectA;
    t.RegisterNatives = registerNatives;
    t.UnregisterNatives = unregisterNatives;
    t.GetFieldID = getFieldId;
    t.GetStaticFieldID = getStaticFieldId;

#define FAKE_CALLS(Name, T)                               \
    t.Call##Name##MethodV = callV<T>;                     \
    t.Call##Name##MethodA = callA<T>;                     \
    t.CallNonvirtual##Name##MethodV = callNonvirtualV<T>; \
    t.CallNonvirtual##Name##MethodA = callNonvirtualA<T>; \
    t.CallStatic##Name##MethodV = callStaticV<T>;         \
    t.CallStatic##Name##MethodA = callStaticA<T>;
#define FAKE_FIELDS(Name, T)                      \
    t.Get##Name##Field = getField<T>;             \
    t.Set##Name##Field = setField<T>;             \
    t.GetStatic##Name##Field = getStaticField<T>; \
    t.SetStatic##Name##Field = setStaticField<T>;
#define FAKE_ARRAYS(Name, T)                                       \
    t.New##Name##Array = newArray<T, T##Array>;                    \
    t.Get##Name##ArrayElements = getElements<T, T##Array>;         \
    t.Release##Name##ArrayElements = releaseElements<T, T##Array>; \
    t.Get##Name##ArrayRegion = getRegion<T, T##Array>;             \
    t.Set##Name##ArrayRegion = setRegion<T, T##Array>;
#define FAKE_PRIMITIVE(Name, T) FAKE_CALLS(Name, T) FAKE_FIELDS(Name, T) FAKE_ARRAYS(Name, T)

    FAKE_CALLS(Void, void)
    FAKE_CALLS(Object, jobject)
    FAKE_FIELDS(Object, jobject)
    FAKE_PRIMITIVE(Boolean, jboolean)
    FAKE_PRIMITIVE(Byte, jbyte)
    FAKE_PRIMITIVE(Char, jchar)
    FAKE_PRIMITIVE(Short, jshort)
    FAKE_PRIMITIVE(Int, jint)
    FAKE_PRIMITIVE(Long, jlong)
    FAKE_PRIMITIVE(Float, jfloat)
    FAKE_PRIMITIVE(Double, jdouble)
#undef FAKE_PRIMITIVE
#undef FAKE_ARRAYS
#undef FAKE_FIELDS
#undef FAKE_CALLS

    t.NewString = newString;
    t.NewStringUTF = newStringUtf;
    t.GetStringLength = getStringLength;
    t.GetStringUTFLength = getStringUtfLength;
    t.GetStringUTFChars = getStringUtfChars;
    t.ReleaseStringUTFChars = releaseStringUtfChars;
    t.GetStringChars = getStringChars;
    t.ReleaseStringChars = releaseStringChars;
    t.GetStringCritical = getStringChars;
    t.ReleaseStringCritical = releaseStringChars;
    t.GetStringRegion = getStringRegion;
    t.GetStringUTFRegion = getStringUtfRegion;
    t.GetArrayLength = getArrayLength;
    t.NewObjectArray = newObjectArray;
    t.GetObjectArrayElement = getObjectArrayElement;
    t.SetObjectArrayElement = setObjectArrayElement;
    t.GetPrimitiveArrayCritical = getCritical;
    t.ReleasePrimitiveArrayCritical = releaseCritical;
    return t;
}

}  // namespace

const JNINativeInterface_* fakejni::functionTable() {
    static const JNINativeInterface_ table = buildTable();
    return &table;
}
