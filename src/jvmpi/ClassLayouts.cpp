// Computes field places for the heap dump.
//
// JVMTI numbers the fields that a class's objects have like this: first the fields of all
// superinterfaces, each interface once; then those of java.lang.Object down to the class itself,
// statics counted like the others. A record of the dump holds the class's own field values first,
// then its superclass's, and so on upwards, without statics.
#include "jvmpi/ClassLayouts.h"

#include <algorithm>
#include <iterator>

#include "jvmpi/ClassIds.h"

namespace adapter {

struct ClassLayouts::Source {
    enum class State { kRead, kBeingLaidOut, kLaidOut };

    jclass mirror = nullptr;
    State state = State::kRead;
    bool usable = false;
    std::vector<FieldInfo> fields;
    jlong superId = 0;
    std::vector<jlong> interfaceIds;
    std::vector<std::uint32_t>
        superInterfaces;  // positions; sorted, each once, those of superclasses included
    std::size_t fieldsOfSuperInterfaces = 0;
};

namespace {

// int.class and its like are no loaded classes, but objects refer to them.
std::vector<LocalRef<jclass>> primitiveMirrors(JNIEnv* env) {
    std::vector<LocalRef<jclass>> mirrors;
    for (const char* wrapper :
         {"Boolean", "Byte", "Character", "Short", "Integer", "Long", "Float", "Double", "Void"}) {
        const std::string name = std::string("java/lang/") + wrapper;
        const LocalRef<jclass> type(env, env->FindClass(name.c_str()));
        const jfieldID field =
            type ? env->GetStaticFieldID(type.get(), "TYPE", "Ljava/lang/Class;") : nullptr;
        if (field == nullptr) {
            env->ExceptionClear();
            continue;
        }
        mirrors.emplace_back(env,
                             static_cast<jclass>(env->GetStaticObjectField(type.get(), field)));
    }
    return mirrors;
}

std::size_t countNumbered(const std::vector<FieldInfo>& fields) {
    return static_cast<std::size_t>(std::count_if(
        fields.begin(), fields.end(), [](const FieldInfo& field) { return !field.isHidden; }));
}

void mergeInto(std::vector<std::uint32_t>& all, const std::vector<std::uint32_t>& more) {
    if (more.empty()) return;
    std::vector<std::uint32_t> merged;
    merged.reserve(all.size() + more.size());
    std::set_union(all.begin(), all.end(), more.begin(), more.end(), std::back_inserter(merged));
    all.swap(merged);
}

}  // namespace

bool ClassLayouts::wants(char signature) const {
    return level_ >= 2 || (level_ == 1 && typeCodeOf(signature) == JVMPI_CLASS);
}

void ClassLayouts::add(JNIEnv* env, jvmtiEnv* tags, jclass mirror) {
    const jlong id = toTag(idOfClass(env, mirror));
    if (id == 0 || find(id) != nullptr || tags->SetTag(mirror, id) != JVMTI_ERROR_NONE) return;
    ClassLayout layout;
    layout.id = id;
    layout.kind = kindOf(mirror);
    layouts_.push_back(std::move(layout));
    const auto index = static_cast<std::size_t>((id - kFirstClassId) / kIdStep);
    if (index >= byId_.size()) byId_.resize(std::max(index + 1, byId_.size() * 2));
    byId_[index] = static_cast<std::uint32_t>(layouts_.size());
}

bool ClassLayouts::load(JNIEnv* env, jvmtiEnv* tags, int level) {
    level_ = level;
    jint count = 0;
    VmMemory<jclass> loaded;
    if (vmti()->GetLoadedClasses(&count, loaded.out()) != JVMTI_ERROR_NONE || count == 0)
        return false;
    announceLocals(env, count);
    std::vector<Source> sources;
    const auto take = [&](jclass mirror) {
        const std::size_t before = layouts_.size();
        add(env, tags, mirror);
        if (layouts_.size() == before) return;
        sources.emplace_back().mirror = mirror;
        mirrors_.push_back(mirror);
    };
    for (jint i = 0; i < count; ++i) take(loaded[i]);
    for (auto& mirror : primitiveMirrors(env)) take(mirror.release());

    const LocalRef<jclass> classClass(env, env->GetObjectClass(loaded[0]));
    if (ClassLayout* layout = find(toTag(idOfClass(env, classClass.get())))) {
        layout->isJavaLangClass = true;
    }
    for (std::size_t i = 0; i < sources.size(); ++i) {
        if (layouts_[i].kind == ClassKind::kOrdinary) {
            readMembers(env, sources[i]);
        } else if (layouts_[i].kind == ClassKind::kArray) {
            readElements(env, sources[i].mirror, layouts_[i]);
        }
    }
    for (std::size_t i = 0; i < sources.size(); ++i) {
        if (layouts_[i].kind == ClassKind::kOrdinary) layOut(sources, i);
    }
    return true;
}

void ClassLayouts::readMembers(JNIEnv* env, Source& source) {
    std::vector<LocalRef<jclass>> interfaces;
    if (!fieldsOf(source.mirror, source.fields) || !interfacesOf(env, source.mirror, interfaces)) {
        return;
    }
    for (const auto& one : interfaces) {
        source.interfaceIds.push_back(toTag(idOfClass(env, one.get())));
    }
    const LocalRef<jclass> super(env, env->GetSuperclass(source.mirror));
    source.superId = super ? toTag(idOfClass(env, super.get())) : 0;
    source.usable = true;
}

void ClassLayouts::readElements(JNIEnv* env, jclass mirror, ClassLayout& layout) {
    const std::string signature = signatureOf(mirror);
    const char element = signature.size() > 1 ? signature[1] : 'L';
    layout.elementType = typeCodeOf(element);
    layout.elementBytes = wants(element) ? static_cast<std::uint32_t>(widthOf(element)) : 0;
    if (layout.elementType != JVMPI_CLASS) return;
    const LocalRef<jclass> classClass(env, env->GetObjectClass(mirror));
    const jmethodID ask =
        env->GetMethodID(classClass.get(), "getComponentType", "()Ljava/lang/Class;");
    const LocalRef<> component(env, ask == nullptr ? nullptr : env->CallObjectMethod(mirror, ask));
    if (env->ExceptionCheck()) env->ExceptionClear();
    if (component) {
        layout.elementClassId = toTag(idOfClass(env, static_cast<jclass>(component.get())));
    }
}

void ClassLayouts::layOut(std::vector<Source>& sources, std::size_t index) {
    Source& source = sources[index];
    if (source.state != Source::State::kRead) return;
    source.state = Source::State::kBeingLaidOut;
    ClassLayout& layout = layouts_[index];

    // Heirs need what they inherit from laid out first. What is missing there is missing here.
    const auto ancestor = [&](jlong id) -> Source* {
        const ClassLayout* found = find(id);
        if (found == nullptr || found->kind == ClassKind::kUnprepared) return nullptr;
        const auto at = static_cast<std::size_t>(found - layouts_.data());
        layOut(sources, at);
        return sources[at].usable && sources[at].state == Source::State::kLaidOut ? &sources[at]
                                                                                  : nullptr;
    };
    const Source* super = source.superId == 0 ? nullptr : ancestor(source.superId);
    source.usable = source.usable && (source.superId == 0 || super != nullptr);
    if (super != nullptr) source.superInterfaces = super->superInterfaces;
    for (const jlong id : source.interfaceIds) {
        const Source* one = ancestor(id);
        source.usable = source.usable && one != nullptr;
        if (one == nullptr) continue;
        mergeInto(source.superInterfaces, one->superInterfaces);
        mergeInto(source.superInterfaces, {static_cast<std::uint32_t>(one - sources.data())});
    }
    source.state = Source::State::kLaidOut;
    if (!source.usable) {
        layout.kind = ClassKind::kUnprepared;
        return;
    }
    for (const std::uint32_t at : source.superInterfaces) {
        source.fieldsOfSuperInterfaces += countNumbered(sources[at].fields);
    }

    std::vector<Slot> own;
    std::uint32_t ownBytes = 0;
    for (const FieldInfo& field : source.fields) {
        Slot slot;
        if (wants(field.kind)) {
            std::uint32_t& end = field.isStatic ? layout.staticBytes : ownBytes;
            slot = Slot(field, end);
            end += static_cast<std::uint32_t>(widthOf(field.kind));
        }
        if (!field.isHidden) own.push_back(slot);
    }
    layout.slots.assign(source.fieldsOfSuperInterfaces, Slot());
    layout.instanceBytes = ownBytes;
    if (super != nullptr) {
        const ClassLayout& above = *find(source.superId);
        for (std::size_t i = super->fieldsOfSuperInterfaces; i < above.slots.size(); ++i) {
            layout.slots.push_back(above.slots[i].inherited(ownBytes));
        }
        layout.instanceBytes += above.instanceBytes;
    }
    layout.slots.insert(layout.slots.end(), own.begin(), own.end());
    layout.superId = source.superId;
    layout.interfaceIds = source.interfaceIds;
}

}  // namespace adapter
