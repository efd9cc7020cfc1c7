// Redirects the class-definition calls of a class loader. In a class that holds calls of a
// configured target (typically a defineClass variant) every such call is pointed at a new private
// method of the same class, "velprobe$<target>", which hands loader, name and bytes to the
// Java-side instrumenter and then calls the target with the bytes that came back.
//
// Pure functions of bytes: no VM, no lock, no state of their own. Input has passed isWellFormed().
#pragma once

#include <atomic>

#include "instrument/classfile.h"
#include "instrument/types.h"

// Local slots, in the wrapper's own frame, of the target's parameters.
struct ParameterIndex {
    USHORT classLoader;
    USHORT className;
    USHORT byteArray;
    USHORT offset;
    USHORT length;
};

// A mark that any thread may set and read, and that goes along when its owner is copied. Relaxed:
// who misses it rewrites a target once more, which is harmless.
class HandledMark {
public:
    HandledMark(bool set = false) : set_(set) {}  // NOLINT(google-explicit-constructor): a flag
    HandledMark(const HandledMark& other) : set_(static_cast<bool>(other)) {}
    HandledMark& operator=(const HandledMark& other) { return *this = static_cast<bool>(other); }
    HandledMark& operator=(bool set) {
        set_.store(set, std::memory_order_relaxed);
        return *this;
    }
    operator bool() const {  // NOLINT(google-explicit-constructor): a flag
        return set_.load(std::memory_order_relaxed);
    }

private:
    std::atomic<bool> set_;
};

// One configured target. Its texts belong to the configuration and live as long as the process.
struct DefineClassMethod {
    const char* fromClassName;  // internal name of the class to rewrite: it contains the calls
    ULONG fromClassNameLength;  // bytes
    const char* toClassName;    // internal name of the class that declares the target
    ULONG toClassNameLength;    // bytes
    const char* methodName;
    const char* methodDescriptor;
    ParameterIndex parameterIndex;
    HandledMark instrumented;  // this target has been handled
};

// Class bytes being worked on; classData is C heap or borrowed, as the owner says.
struct ClassData {
    int classDataLen;
    BYTE* classData;
};

struct ExceptionTableEntry {
    USHORT start_pc;
    USHORT end_pc;
    USHORT handler_pc;
    USHORT catch_type;
};

// A generated method body; free with freeMethodData.
struct MethodData {
    USHORT max_stack;
    USHORT max_locals;
    ULONG code_length;
    BYTE* code;  // C heap
    USHORT exception_table_length;
    ExceptionTableEntry* exception_table;  // C heap or null
};

constexpr char kWrapperPrefix[] = "velprobe$";

enum AccessFlag : USHORT { kAccPrivate = 2, kAccStatic = 8, kAccFinal = 16 };

// The wrapper's body; instrumenter and target are the pool slots of the two Methodrefs that it
// calls. Null without memory.
MethodData* generateWrapperMethod(USHORT classAccess, USHORT methodAccess,
                                  const DefineClassMethod& target, USHORT instrumenterSlot,
                                  USHORT targetSlot);
void freeMethodData(MethodData* method);

// The rewritten class in new C-heap memory (free with freeClassData), or null when it has nothing
// to rewrite, no room for ten more pool entries or one more method, slots that do not fit the kind
// of method that the target is (logged), or memory fails. original has passed isWellFormed().
ClassData* instrumentDefineClass(const ClassData* original, const DefineClassMethod* target,
                                 const ConstantPool* pool);
void freeClassData(ClassData* data);  // with its bytes
