#include "instrument/LoadInjector.h"

#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <vector>

#include "foundation/Log.h"
#include "foundation/Messages.h"
#include "instrument/InstrumentConfig.h"
#include "instrument/ParameterSlots.h"
#include "instrument/dumpclass.h"

namespace {

constexpr char kInstrumenterClass[] = "com/velora/bcm/bootstrap/BcmBootstrap";
constexpr char kInstrumenterMethod[] = "instrumentClassStatic";
constexpr char kInstrumenterDescriptor[] = "(Ljava/lang/ClassLoader;Ljava/lang/String;[BII)[B";
constexpr int kNewEntries = 10;
constexpr int kHeaderBytes = 8;  // magic, minor and major version

// What a rewrite adds besides the wrapper's name, code and exception table: ten pool entries of 156
// bytes less the name, a method_info of 8, "Exceptions" of 10 and "Code" of 18.
constexpr int kFixedGrowth = 192;

// What the walk over the pool finds; 0: not there.
struct PoolFindings {
    USHORT code = 0;              // Utf8 "Code"
    USHORT exceptions = 0;        // Utf8 "Exceptions"
    USHORT classFormatError = 0;  // Class java/lang/ClassFormatError
    std::vector<USHORT> calls;    // Methodrefs of the target
    USHORT targetClass = 0;       // of the last of them: its Class, name and descriptor
    USHORT targetName = 0;
    USHORT targetDescriptor = 0;
};

// Where the parts of a class file begin.
struct Layout {
    BYTE* access;      // access_flags
    BYTE* methods;     // methods_count
    BYTE* attributes;  // the class's attributes_count
    BYTE* end;
};

using ClassDataPtr = std::unique_ptr<ClassData, decltype(&freeClassData)>;
using MethodDataPtr = std::unique_ptr<MethodData, decltype(&freeMethodData)>;

bool utf8Equals(const BYTE* entry, const char* text, std::size_t length) {
    return readUSHORT(entry + 1) == length && std::memcmp(entry + 3, text, length) == 0;
}

bool utf8Equals(const BYTE* entry, const char* text) {
    return utf8Equals(entry, text, std::strlen(text));
}

// Intended: compared over the configured name's length, so a longer class name that begins with it
// is taken as well.
bool classNameMatches(const BYTE* entry, const DefineClassMethod& target) {
    return readUSHORT(entry + 1) >= target.toClassNameLength &&
           std::memcmp(entry + 3, target.toClassName, target.toClassNameLength) == 0;
}

bool isTargetCall(const ConstantPool& pool, const BYTE* methodref,
                  const DefineClassMethod& target) {
    const BYTE* const clazz = pool.entries[readUSHORT(methodref + 1)];
    const BYTE* const nameAndType = pool.entries[readUSHORT(methodref + 3)];
    return classNameMatches(pool.entries[readUSHORT(clazz + 1)], target) &&
           utf8Equals(pool.entries[readUSHORT(nameAndType + 1)], target.methodName) &&
           utf8Equals(pool.entries[readUSHORT(nameAndType + 3)], target.methodDescriptor);
}

// Remembers one call; false when there is no memory for it.
bool noteCall(PoolFindings* found, const ConstantPool& pool, USHORT slot) {
    try {
        found->calls.push_back(slot);
    } catch (const std::bad_alloc&) {
        VEL_DEBUG_MIN("instrumentDefineClass(ClassData*, DefineClassMethod*, ConstantPool*)",
                      "malloc failed");
        return false;
    }
    const BYTE* const methodref = pool.entries[slot];
    const BYTE* const nameAndType = pool.entries[readUSHORT(methodref + 3)];
    found->targetClass = readUSHORT(methodref + 1);
    found->targetName = readUSHORT(nameAndType + 1);
    found->targetDescriptor = readUSHORT(nameAndType + 3);
    return true;
}

PoolFindings searchPool(const ConstantPool& pool, const DefineClassMethod& target) {
    PoolFindings found;
    for (USHORT slot = 1; slot < pool.count; ++slot) {
        const BYTE* const entry = pool.entries[slot];
        if (entry == nullptr) continue;  // the second slot of a Long or Double
        if (*entry == kUtf8) {
            if (utf8Equals(entry, "Code")) found.code = slot;
            if (utf8Equals(entry, "Exceptions")) found.exceptions = slot;
        } else if (*entry == kClass) {
            if (utf8Equals(pool.entries[readUSHORT(entry + 1)], "java/lang/ClassFormatError"))
                found.classFormatError = slot;
        } else if (*entry == kMethodref && isTargetCall(pool, entry, target)) {
            if (!noteCall(&found, pool, slot)) break;
        }
    }
    return found;
}

BYTE* skipMembers(BYTE* count) {
    BYTE* at = count + 2;
    for (USHORT left = readUSHORT(count); left > 0; --left) at += getMemberLength(at);
    return at;
}

Layout layOut(const ClassData& original, const ConstantPool& pool) {
    Layout layout{};
    layout.access = pool.end;
    BYTE* const interfaces = layout.access + 6;  // behind flags, this_class and super_class
    layout.methods = skipMembers(interfaces + 2 + std::size_t{2} * readUSHORT(interfaces));
    layout.attributes = skipMembers(layout.methods);
    layout.end = original.classData + original.classDataLen;
    return layout;
}

// Access flags of the class's own definition of the target, 0 when it has none.
USHORT ownDefinitionAccess(const Layout& layout, const PoolFindings& found) {
    USHORT access = 0;
    const BYTE* method = layout.methods + 2;
    for (USHORT left = readUSHORT(layout.methods); left > 0; --left) {
        if (readUSHORT(method + 2) == found.targetName &&
            readUSHORT(method + 4) == found.targetDescriptor)
            access = readUSHORT(method);
        method += getMemberLength(method);
    }
    return access;
}

// The configuration cannot know whether the class defines the target as a static method.
bool slotsSuit(const DefineClassMethod& target, USHORT methodAccess) {
    const bool isStatic = (methodAccess & kAccStatic) != 0;
    if (slotsFit(target.methodDescriptor, target.parameterIndex, isStatic)) return true;
    logMessage(msg::kTargetSlotsUnfit, target.fromClassName, isStatic ? "static" : "instance",
               target.methodName);
    return false;
}

void appendUtf8(BYTE** out, const char* prefix, const char* text) {
    const std::size_t prefixLength = std::strlen(prefix);
    const std::size_t textLength = std::strlen(text);
    appendBYTE(out, kUtf8);
    appendUSHORT(out, static_cast<USHORT>(prefixLength + textLength));
    appendBuffer(out, reinterpret_cast<const BYTE*>(prefix), static_cast<int>(prefixLength));
    appendBuffer(out, reinterpret_cast<const BYTE*>(text), static_cast<int>(textLength));
}

void appendPair(BYTE** out, BYTE tag, USHORT first, USHORT second) {
    appendBYTE(out, tag);
    appendUSHORT(out, first);
    appendUSHORT(out, second);
}

// The old entries, every call of the target redirected to the wrapper on the class itself.
void appendPatchedPool(BYTE** out, const ConstantPool& pool, const PoolFindings& found,
                       USHORT thisClass) {
    BYTE* const copy = *out;
    appendBuffer(out, pool.start, static_cast<int>(pool.end - pool.start));
    for (const USHORT call : found.calls) {
        BYTE* patch = copy + (pool.entries[call] - pool.start) + 1;
        appendUSHORT(&patch, thisClass);
        appendUSHORT(&patch, static_cast<USHORT>(pool.count + 1));
    }
}

// Slots n to n + 9, n being the old constant_pool_count.
void appendNewEntries(BYTE** out, USHORT n, const PoolFindings& found,
                      const DefineClassMethod& target) {
    const auto slot = [n](int offset) { return static_cast<USHORT>(n + offset); };
    appendUtf8(out, kWrapperPrefix, target.methodName);              // n
    appendPair(out, kNameAndType, slot(0), found.targetDescriptor);  // n + 1: the wrapper
    appendUtf8(out, kInstrumenterClass, "");                         // n + 2
    appendUtf8(out, kInstrumenterMethod, "");                        // n + 3
    appendUtf8(out, kInstrumenterDescriptor, "");                    // n + 4
    appendBYTE(out, kClass);                                         // n + 5
    appendUSHORT(out, slot(2));
    appendPair(out, kNameAndType, slot(3), slot(4));                          // n + 6
    appendPair(out, kNameAndType, found.targetName, found.targetDescriptor);  // n + 7
    appendPair(out, kMethodref, slot(5), slot(6));                            // n + 8: instrumenter
    appendPair(out, kMethodref, found.targetClass, slot(7));                  // n + 9: target
}

void appendWrapper(BYTE** out, USHORT n, const PoolFindings& found, USHORT methodAccess,
                   const MethodData& body) {
    const bool isStatic = (methodAccess & kAccStatic) != 0;
    appendUSHORT(out, isStatic ? kAccPrivate | kAccStatic : kAccPrivate);
    appendUSHORT(out, n);
    appendUSHORT(out, found.targetDescriptor);
    appendUSHORT(out, 2);  // attributes

    appendUSHORT(out, found.exceptions);
    appendULONG(out, 4);
    appendUSHORT(out, 1);
    appendUSHORT(out, found.classFormatError);

    appendUSHORT(out, found.code);
    appendULONG(out, (12 + body.code_length + 8 * body.exception_table_length) & 0xFFFF);
    appendUSHORT(out, body.max_stack);
    appendUSHORT(out, body.max_locals);
    appendULONG(out, body.code_length);
    appendBuffer(out, body.code, static_cast<int>(body.code_length));
    appendUSHORT(out, body.exception_table_length);
    for (int i = 0; i < body.exception_table_length; ++i) {
        const ExceptionTableEntry& entry = body.exception_table[i];
        appendUSHORT(out, entry.start_pc);
        appendUSHORT(out, entry.end_pc);
        appendUSHORT(out, entry.handler_pc);
        appendUSHORT(out, entry.catch_type);
    }
    appendUSHORT(out, 0);  // attributes of the code
}

ClassDataPtr allocateClassData(std::size_t size) {
    ClassDataPtr data(static_cast<ClassData*>(std::calloc(1, sizeof(ClassData))), freeClassData);
    if (data != nullptr) data->classData = static_cast<BYTE*>(std::malloc(size));
    if (data == nullptr || data->classData == nullptr) {
        VEL_DEBUG_MIN("instrumentDefineClass(ClassData*, DefineClassMethod*, ConstantPool*)",
                      "malloc failed");
        data.reset();
    }
    return data;
}

void appendRange(BYTE** out, const BYTE* from, const BYTE* to) {
    appendBuffer(out, from, static_cast<int>(to - from));
}

void dumpIfWanted(const ClassData& data, const ConstantPool& pool, USHORT thisClass) {
    const BYTE* const name = pool.entries[readUSHORT(pool.entries[thisClass] + 1)];
    dumpClass(reinterpret_cast<const char*>(name + 3), readUSHORT(name + 1), &data);
}

// The letters of a descriptor, freed with the scope.
using Letters = std::unique_ptr<char, decltype(&std::free)>;

// The wrapper's instructions. letters: the parameters', then the result's.
BYTE* writeBody(BYTE* code, const char* letters, const DefineClassMethod& target, bool isStatic,
                bool isVirtual, USHORT firstFree, USHORT instrumenterSlot, USHORT targetSlot) {
    const ParameterIndex& local = target.parameterIndex;
    BYTE* out = code;
    aload(&out, local.classLoader);
    aload(&out, local.className);
    aload(&out, local.byteArray);
    iload(&out, local.offset);
    iload(&out, local.length);
    invokestatic(&out, instrumenterSlot);

    astore(&out, firstFree);
    aload(&out, firstFree);
    BYTE* const branch = out;
    ifnull(&out, 0);
    aload(&out, firstFree);
    astore(&out, local.byteArray);
    iconst_0(&out);
    istore(&out, local.offset);
    aload(&out, local.byteArray);
    arraylength(&out);
    istore(&out, local.length);
    BYTE* patch = branch + 1;
    appendUSHORT(&patch, static_cast<USHORT>(out - branch));

    if (!isStatic) aload(&out, 0);
    USHORT slot = isStatic ? 0 : 1;
    for (; letters[1] != '\0'; ++letters) {
        xload(&out, *letters, slot);
        slot = static_cast<USHORT>(slot + getOperandTypeSize(*letters));
    }
    (isStatic ? invokestatic : isVirtual ? invokevirtual : invokespecial)(&out, targetSlot);
    areturn(&out);
    return out;
}

}  // namespace

MethodData* generateWrapperMethod(USHORT classAccess, USHORT methodAccess,
                                  const DefineClassMethod& target, USHORT instrumenterSlot,
                                  USHORT targetSlot) {
    constexpr char kSignature[] =
        "generateWrapperMethod(USHORT, USHORT, DefineClassMethod*, USHORT, USHORT)";
    VEL_TRACE(kSignature);
    const Letters letters(
        parseDescriptor(reinterpret_cast<const BYTE*>(target.methodDescriptor),
                        static_cast<USHORT>(std::strlen(target.methodDescriptor))),
        std::free);
    if (letters == nullptr) return nullptr;
    MethodDataPtr method(static_cast<MethodData*>(std::calloc(1, sizeof(MethodData))),
                         freeMethodData);
    if (method != nullptr)
        method->code = static_cast<BYTE*>(std::malloc(4 * std::strlen(letters.get()) + 65));
    if (method == nullptr || method->code == nullptr) {
        VEL_DEBUG_MIN(kSignature, "malloc failed");
        return nullptr;
    }
    const bool isStatic = (methodAccess & kAccStatic) != 0;
    const bool isVirtual =
        (methodAccess & (kAccPrivate | kAccFinal)) == 0 && (classAccess & kAccFinal) == 0;
    USHORT firstFree = isStatic ? 0 : 1;
    for (const char* letter = letters.get(); letter[1] != '\0'; ++letter)
        firstFree = static_cast<USHORT>(firstFree + getOperandTypeSize(*letter));

    const BYTE* const end = writeBody(method->code, letters.get(), target, isStatic, isVirtual,
                                      firstFree, instrumenterSlot, targetSlot);
    // Intended: the stack is as deep as the target's parameters, and is not raised to the five
    // values that the call of the instrumenter pushes.
    method->max_stack = firstFree;
    method->max_locals = static_cast<USHORT>(firstFree + 1);
    method->code_length = static_cast<ULONG>(end - method->code);
    return method.release();
}

void freeMethodData(MethodData* method) {
    if (method == nullptr) return;
    std::free(method->code);
    std::free(method->exception_table);
    std::free(method);
}

void freeClassData(ClassData* data) {
    if (data == nullptr) return;
    std::free(data->classData);
    std::free(data);
}

ClassData* instrumentDefineClass(const ClassData* original, const DefineClassMethod* target,
                                 const ConstantPool* pool) {
    VEL_TRACE("instrumentDefineClass(ClassData*, DefineClassMethod*, ConstantPool*)");
    const Layout layout = layOut(*original, *pool);
    const PoolFindings found = searchPool(*pool, *target);
    if (found.code == 0 || found.calls.empty()) return nullptr;
    const USHORT n = pool->count;
    const USHORT methods = readUSHORT(layout.methods);
    if (n > 0xFFFF - kNewEntries || methods == 0xFFFF) return nullptr;

    const USHORT classAccess = readUSHORT(layout.access);
    const USHORT thisClass = readUSHORT(layout.access + 2);
    const USHORT methodAccess = ownDefinitionAccess(layout, found);
    if (!slotsSuit(*target, methodAccess)) return nullptr;
    const MethodDataPtr body(
        generateWrapperMethod(classAccess, methodAccess, *target, static_cast<USHORT>(n + 8),
                              static_cast<USHORT>(n + 9)),
        freeMethodData);
    if (body == nullptr) return nullptr;
    ClassDataPtr rewritten = allocateClassData(
        static_cast<std::size_t>(original->classDataLen) + std::strlen(target->methodName) +
        body->code_length + std::size_t{8} * body->exception_table_length + kFixedGrowth);
    if (rewritten == nullptr) return nullptr;

    BYTE* out = rewritten->classData;
    appendBuffer(&out, original->classData, kHeaderBytes);
    appendUSHORT(&out, static_cast<USHORT>(n + kNewEntries));
    appendPatchedPool(&out, *pool, found, thisClass);
    appendNewEntries(&out, n, found, *target);
    appendRange(&out, layout.access, layout.methods);
    appendUSHORT(&out, static_cast<USHORT>(methods + 1));
    appendRange(&out, layout.methods + 2, layout.attributes);
    appendWrapper(&out, n, found, methodAccess, *body);
    appendRange(&out, layout.attributes, layout.end);
    rewritten->classDataLen = static_cast<int>(out - rewritten->classData);
    dumpIfWanted(*rewritten, *pool, thisClass);
    return rewritten.release();
}
