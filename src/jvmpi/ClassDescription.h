// What JVMTI tells about a class, in the shapes that JVMPI wants. Event 42 and the heap dump both
// read classes through this file, because an agent can only walk a dump when both agree about
// interfaces and static fields.
#pragma once

#include <string>
#include <vector>

#include "jvmpi/Jvmti.h"
#include "jvmpi/jvmpi.h"

namespace adapter {

enum class ClassKind { kOrdinary, kArray, kPrimitive, kUnprepared };

// kUnprepared: loaded but not linked; the VM does not tell its members then.
ClassKind kindOf(jclass type);

// Links an unprepared class without running its static initialiser, by asking for its fields
// through reflection. Such classes have living objects when the VM maps them from its archive.
// False: still unprepared. Runs Java code: the caller holds no lock and has laid exceptions aside.
bool linkClass(JNIEnv* env, jclass type);

// "java/lang/String", "[I", "[Ljava/lang/String;", "int" from the signatures of classes. Everything
// else of the interface keeps its signature form.
std::string classNameOf(const std::string& signature);
std::string signatureOf(jclass type);  // empty when the VM does not tell

// The type code (JVMPI_INT and so on, JVMPI_CLASS for references) and the width in a dump of a
// value whose signature begins with that character; width 0 for others.
jint typeCodeOf(char signature);
std::size_t widthOf(char signature);

struct FieldInfo {
    char kind;  // first character of its signature
    bool isStatic;
    bool isHidden;  // heap walks neither report nor number it
};

// The class's own fields in the order of all that speak about them; false when the VM does not
// tell.
bool fieldsOf(jclass type, std::vector<FieldInfo>& fields);

// Direct interfaces, as new local references.
bool interfacesOf(JNIEnv* env, jclass type, std::vector<LocalRef<jclass>>& interfaces);

// A class-load event's content together with the memory behind it; valid while this object lives.
class ClassDescription {
public:
    ClassDescription(JNIEnv* env, jclass type);
    ClassDescription(const ClassDescription&) = delete;
    ClassDescription& operator=(const ClassDescription&) = delete;

    bool isComplete() const { return complete_; }
    void fill(JVMPI_Event& event);

private:
    bool readInterfaces(JNIEnv* env, jclass type);
    bool readMethods(jclass type);
    bool readFields(jclass type);
    char* keep(VmMemory<char> text);

    bool complete_ = false;
    std::string name_;
    VmMemory<char> source_;
    jint interfaces_ = 0;
    jobjectID id_ = nullptr;
    std::vector<VmMemory<char>> texts_;
    std::vector<JVMPI_Method> methods_;
    std::vector<JVMPI_Field> statics_;
    std::vector<JVMPI_Field> instances_;
};

}  // namespace adapter
