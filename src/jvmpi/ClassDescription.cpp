// Reads classes through JVMTI.
#include "jvmpi/ClassDescription.h"

#include <algorithm>
#include <cstring>

#include "jvmpi/ClassIds.h"

namespace adapter {
namespace {

constexpr jint kAccStatic = 0x0008;

char noText[] = "";  // the interface's strings are not const; agents do not write to them

bool isPrepared(jint status) {
    return (status & JVMTI_CLASS_STATUS_PREPARED) != 0;
}

jint statusOf(jclass type) {
    jint status = 0;
    return vmti()->GetClassStatus(type, &status) == JVMTI_ERROR_NONE ? status : 0;
}

// First and last source line of a method; -1 for native and abstract ones and those without a line
// table.
void readLines(JVMPI_Method& method) {
    method.start_lineno = method.end_lineno = -1;
    jint count = 0;
    VmMemory<jvmtiLineNumberEntry> table;
    if (vmti()->GetLineNumberTable(method.method_id, &count, table.out()) != JVMTI_ERROR_NONE)
        return;
    for (jint i = 0; i < count; ++i) {
        const jint line = table[i].line_number;
        method.start_lineno = i == 0 ? line : std::min(method.start_lineno, line);
        method.end_lineno = std::max(method.end_lineno, line);
    }
}

// Fields that the VM lists among a class's fields but leaves out of its heap walks.
bool isHiddenField(const std::string& className, const char* field) {
    struct Hidden {
        const char* className;
        const char* field;
    };
    static constexpr Hidden kHidden[] = {
        {"Ljdk/internal/reflect/UnsafeStaticFieldAccessorImpl;", "base"},
        {"Ljdk/internal/reflect/ConstantPool;", "constantPoolOop"},
    };
    for (const Hidden& hidden : kHidden) {
        if (className == hidden.className) return strcmp(field, hidden.field) == 0;
    }
    return false;
}

const char* primitiveName(char signature) {
    switch (signature) {
        case 'Z':
            return "boolean";
        case 'B':
            return "byte";
        case 'C':
            return "char";
        case 'S':
            return "short";
        case 'I':
            return "int";
        case 'J':
            return "long";
        case 'F':
            return "float";
        case 'D':
            return "double";
        case 'V':
            return "void";
        default:
            return "";
    }
}

}  // namespace

ClassKind kindOf(jclass type) {
    const jint status = statusOf(type);
    if (status & JVMTI_CLASS_STATUS_ARRAY) return ClassKind::kArray;
    if (status & JVMTI_CLASS_STATUS_PRIMITIVE) return ClassKind::kPrimitive;
    return isPrepared(status) ? ClassKind::kOrdinary : ClassKind::kUnprepared;
}

bool linkClass(JNIEnv* env, jclass type) {
    const LocalRef<jclass> mirror(env, env->GetObjectClass(type));
    const jmethodID ask =
        env->GetMethodID(mirror.get(), "getDeclaredFields", "()[Ljava/lang/reflect/Field;");
    if (ask != nullptr) {
        const LocalRef<> fields(env, env->CallObjectMethod(type, ask));
        if (env->ExceptionCheck()) env->ExceptionClear();
    } else {
        env->ExceptionClear();
    }
    return isPrepared(statusOf(type));
}

std::string classNameOf(const std::string& signature) {
    if (signature.size() == 1) return primitiveName(signature[0]);
    if (signature.size() > 2 && signature.front() == 'L' && signature.back() == ';') {
        return signature.substr(1, signature.size() - 2);
    }
    return signature;
}

std::string signatureOf(jclass type) {
    VmMemory<char> signature;
    if (vmti()->GetClassSignature(type, signature.out(), nullptr) != JVMTI_ERROR_NONE) return {};
    return signature.get();
}

jint typeCodeOf(char signature) {
    switch (signature) {
        case 'Z':
            return JVMPI_BOOLEAN;
        case 'B':
            return JVMPI_BYTE;
        case 'C':
            return JVMPI_CHAR;
        case 'S':
            return JVMPI_SHORT;
        case 'I':
            return JVMPI_INT;
        case 'J':
            return JVMPI_LONG;
        case 'F':
            return JVMPI_FLOAT;
        case 'D':
            return JVMPI_DOUBLE;
        case 'L':
        case '[':
            return JVMPI_CLASS;
        default:
            return JVMPI_NORMAL_OBJECT;
    }
}

std::size_t widthOf(char signature) {
    switch (signature) {
        case 'Z':
        case 'B':
            return 1;
        case 'C':
        case 'S':
            return 2;
        case 'I':
        case 'F':
            return 4;
        case 'J':
        case 'D':
            return 8;
        case 'L':
        case '[':
            return sizeof(jobjectID);
        default:
            return 0;
    }
}

bool fieldsOf(jclass type, std::vector<FieldInfo>& fields) {
    jint count = 0;
    VmMemory<jfieldID> ids;
    fields.clear();
    if (vmti()->GetClassFields(type, &count, ids.out()) != JVMTI_ERROR_NONE) return false;
    fields.reserve(static_cast<std::size_t>(count));
    const std::string className = signatureOf(type);
    for (jint i = 0; i < count; ++i) {
        VmMemory<char> name;
        VmMemory<char> signature;
        jint modifiers = 0;
        if (vmti()->GetFieldName(type, ids[i], name.out(), signature.out(), nullptr) !=
                JVMTI_ERROR_NONE ||
            vmti()->GetFieldModifiers(type, ids[i], &modifiers) != JVMTI_ERROR_NONE) {
            return false;
        }
        fields.push_back(
            {signature[0], (modifiers & kAccStatic) != 0, isHiddenField(className, name.get())});
    }
    return true;
}

bool interfacesOf(JNIEnv* env, jclass type, std::vector<LocalRef<jclass>>& interfaces) {
    jint count = 0;
    VmMemory<jclass> found;
    interfaces.clear();
    if (vmti()->GetImplementedInterfaces(type, &count, found.out()) != JVMTI_ERROR_NONE)
        return false;
    for (jint i = 0; i < count; ++i) interfaces.emplace_back(env, found[i]);
    return true;
}

ClassDescription::ClassDescription(JNIEnv* env, jclass type) {
    const ClassKind kind = kindOf(type);
    if (kind == ClassKind::kUnprepared && !linkClass(env, type)) return;
    name_ = classNameOf(signatureOf(type));
    id_ = idOfClass(env, type);
    if (name_.empty() || id_ == nullptr) return;
    const bool hasMembers = kind != ClassKind::kArray && kind != ClassKind::kPrimitive;
    if (hasMembers) {
        vmti()->GetSourceFileName(type, source_.out());  // stays empty when the class does not say
        complete_ = readInterfaces(env, type) && readMethods(type) && readFields(type);
    } else {
        complete_ = true;
    }
}

bool ClassDescription::readInterfaces(JNIEnv* env, jclass type) {
    std::vector<LocalRef<jclass>> interfaces;
    if (!interfacesOf(env, type, interfaces)) return false;
    interfaces_ = static_cast<jint>(interfaces.size());
    return true;
}

char* ClassDescription::keep(VmMemory<char> text) {
    texts_.push_back(std::move(text));
    return texts_.back().get();
}

bool ClassDescription::readMethods(jclass type) {
    jint count = 0;
    VmMemory<jmethodID> ids;
    if (vmti()->GetClassMethods(type, &count, ids.out()) != JVMTI_ERROR_NONE) return false;
    for (jint i = 0; i < count; ++i) {
        VmMemory<char> name;
        VmMemory<char> signature;
        if (vmti()->GetMethodName(ids[i], name.out(), signature.out(), nullptr) !=
            JVMTI_ERROR_NONE) {
            return false;
        }
        JVMPI_Method method{};
        method.method_id = ids[i];
        method.method_name = keep(std::move(name));
        method.method_signature = keep(std::move(signature));
        readLines(method);
        methods_.push_back(method);
    }
    return true;
}

bool ClassDescription::readFields(jclass type) {
    jint count = 0;
    VmMemory<jfieldID> ids;
    if (vmti()->GetClassFields(type, &count, ids.out()) != JVMTI_ERROR_NONE) return false;
    for (jint i = 0; i < count; ++i) {
        VmMemory<char> name;
        VmMemory<char> signature;
        jint modifiers = 0;
        if (vmti()->GetFieldName(type, ids[i], name.out(), signature.out(), nullptr) !=
                JVMTI_ERROR_NONE ||
            vmti()->GetFieldModifiers(type, ids[i], &modifiers) != JVMTI_ERROR_NONE) {
            return false;
        }
        const JVMPI_Field field{keep(std::move(name)), keep(std::move(signature))};
        ((modifiers & kAccStatic) ? statics_ : instances_).push_back(field);
    }
    return true;
}

void ClassDescription::fill(JVMPI_Event& event) {
    auto& load = event.u.class_load;
    load.class_name = name_.c_str();
    load.source_name = source_ ? source_.get() : noText;
    load.num_interfaces = interfaces_;
    load.num_methods = static_cast<jint>(methods_.size());
    load.methods = methods_.data();
    load.num_static_fields = static_cast<jint>(statics_.size());
    load.statics = statics_.data();
    load.num_instance_fields = static_cast<jint>(instances_.size());
    load.instances = instances_.data();
    load.class_id = id_;
}

}  // namespace adapter
