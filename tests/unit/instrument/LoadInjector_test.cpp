// The rewrite of a class-loader class, byte by byte. The expected bytes are typed by hand.
#include "instrument/LoadInjector.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "support/ClassFileBuilder.h"

namespace {

constexpr char kDefine[] = "(Ljava/lang/String;[BII)Ljava/lang/Class;";

DefineClassMethod target(const char* descriptor = kDefine, ParameterIndex at = {0, 1, 2, 3, 4}) {
    return {"org/acme/L", 10, "java/lang/ClassLoader", 21, "defineClass", descriptor, at, false};
}

struct Rewritten {
    bool done = false;
    Bytes bytes;
};

Rewritten rewrite(Bytes file, const DefineClassMethod& wanted = target()) {
    const std::unique_ptr<ConstantPool, decltype(&freeConstantPool)> pool(
        parseConstantPool(file.data() + 8, file.data() + file.size()), freeConstantPool);
    EXPECT_NE(pool, nullptr);
    EXPECT_TRUE(isWellFormed(file.data(), static_cast<int>(file.size()), *pool));
    const ClassData original{static_cast<int>(file.size()), file.data()};
    const std::unique_ptr<ClassData, decltype(&freeClassData)> result(
        instrumentDefineClass(&original, &wanted, pool.get()), freeClassData);
    if (result == nullptr) return {};
    return {true, Bytes(result->classData, result->classData + result->classDataLen)};
}

// Slots 1 to 14 of the golden class: a loader that calls an inherited defineClass.
Bytes goldenPool(const Bytes& methodref) {
    return hex("01 000A") + bytesOf("org/acme/L") +                  // 1
           hex("07 0001") +                                          // 2 this
           hex("01 0010") + bytesOf("java/lang/Object") +            // 3
           hex("07 0003") +                                          // 4 super
           hex("01 0004") + bytesOf("Code") +                        // 5
           hex("01 000A") + bytesOf("Exceptions") +                  // 6
           hex("01 001A") + bytesOf("java/lang/ClassFormatError") +  // 7
           hex("07 0007") +                                          // 8
           hex("01 0015") + bytesOf("java/lang/ClassLoader") +       // 9
           hex("07 0009") +                                          // 10
           hex("01 000B") + bytesOf("defineClass") +                 // 11
           hex("01 0029") + bytesOf(kDefine) +                       // 12
           hex("0C 000B 000C") +                                     // 13
           methodref;                                                // 14
}

// One field, one method with a Code of five bytes, one class attribute: all of it must come
// through.
const Bytes kMembers =
    hex("0021 0002 0004 0001 0004"   // flags, this, super, one interface
        "0001  0002 0009 000B 0000"  // a field
    );
const Bytes kOldMethod = hex("0001 000B 0003 0001  0005 00000005 0102030405");
const Bytes kClassAttributes = hex("0001  0006 00000002 ABCD");

TEST(LoadInjectorGolden, AnInheritedTargetGivesTheseBytes) {
    const Bytes before = hex("CAFEBABE 0003 002D 000F") + goldenPool(hex("0A 000A 000D")) +
                         kMembers + hex("0001") + kOldMethod + kClassAttributes;
    const Bytes after =
        hex("CAFEBABE 0003 002D 0019") + goldenPool(hex("0A 0002 0010")) + hex("01 0014") +
        bytesOf("velprobe$defineClass") +                                                // 15
        hex("0C 000F 000C") +                                                            // 16
        hex("01 0025") + bytesOf("com/velora/bcm/bootstrap/BcmBootstrap") +              // 17
        hex("01 0015") + bytesOf("instrumentClassStatic") +                              // 18
        hex("01 0031") + bytesOf("(Ljava/lang/ClassLoader;Ljava/lang/String;[BII)[B") +  // 19
        hex("07 0011") +                                                                 // 20
        hex("0C 0012 0013") +                                                            // 21
        hex("0C 000B 000C") +                                                            // 22
        hex("0A 0014 0015") +                                                            // 23
        hex("0A 000A 0016") +                                                            // 24
        kMembers + hex("0002") + kOldMethod +
        hex("0002 000F 000C 0002") +               // private, wrapper, descriptor
        hex("0006 00000004 0001 0008") +           // Exceptions
        hex("0005 0000003A 0005 0006 0000002E") +  // Code: 5 deep, 6 locals, 46 bytes
        hex("19 00  19 01  19 02  15 03  15 04  B8 0017") +
        hex("3A 05  19 05  C6 000F  19 05  3A 02  03  36 03  19 02  BE  36 04") +
        hex("19 00  19 01  19 02  15 03  15 04  B6 0018  B0") +
        hex("0000 0000") +  // no exception table, no attributes
        kClassAttributes;
    const Rewritten result = rewrite(before);
    ASSERT_TRUE(result.done);
    EXPECT_EQ(result.bytes, after);
}

// A loader class around the golden references, with a definition of the target of its own.
struct OwnDefinition {
    unsigned classAccess = 0x21;
    int methodAccess = -1;  // -1: inherited
    const char* descriptor = kDefine;
    bool withCode = true;
};

struct Built {
    Bytes bytes;
    unsigned count;  // N
};

Built build(const OwnDefinition& own) {
    ClassFileBuilder builder;
    builder.access(own.classAccess).name("org/acme/L");
    builder.methodref("java/lang/ClassLoader", "defineClass", own.descriptor);
    // The method names the same Utf8 entries as the reference does: 6 and 7 lie behind this, super
    // and class.
    const unsigned name = 7;
    const unsigned descriptor = 8;
    if (own.methodAccess >= 0)
        builder.method(static_cast<unsigned>(own.methodAccess), name, descriptor);
    if (own.withCode) builder.utf8("Code");
    return {builder.build(), builder.poolCount()};
}

// The wrapper lies at the end, in front of the class's (empty) attributes.
Bytes wrapperCode(const Rewritten& result, std::size_t codeLength) {
    const auto end =
        result.bytes.end() - 2 - 4;  // attributes_count; exception table and attributes
    return {end - static_cast<std::ptrdiff_t>(codeLength), end};
}

TEST(LoadInjectorVariants, TheTargetDecidesHowItIsCalled) {
    struct Case {
        const char* rule;
        unsigned classAccess;
        int methodAccess;
        const char* invoke;
    };
    for (const Case& c :
         {Case{"inherited", 0x21, -1, "B6"}, Case{"public", 0x21, 1, "B6"},
          Case{"private", 0x21, 2, "B7"}, Case{"final", 0x21, 0x11, "B7"},
          Case{"inAFinalClass", 0x31, 1, "B7"}, Case{"inheritedInAFinalClass", 0x31, -1, "B7"}}) {
        const Built before = build({c.classAccess, c.methodAccess});
        const Rewritten result = rewrite(before.bytes);
        ASSERT_TRUE(result.done) << c.rule;
        EXPECT_EQ(wrapperCode(result, 4), hex(c.invoke) + u2(before.count + 9) + hex("B0"))
            << c.rule;
        EXPECT_EQ(Bytes(result.bytes.begin() + 8, result.bytes.begin() + 10),
                  u2(before.count + 10));
    }
}

TEST(LoadInjectorVariants, AStaticTargetHasAStaticWrapperWithoutThis) {
    const char* descriptor = "(Ljava/lang/ClassLoader;Ljava/lang/String;[BII)Ljava/lang/Class;";
    const Built before = build({0x21, 0x0A, descriptor});
    const Rewritten result = rewrite(before.bytes, target(descriptor, {0, 1, 2, 3, 4}));
    ASSERT_TRUE(result.done);
    const unsigned n = before.count;
    const Bytes code = hex("19 00  19 01  19 02  15 03  15 04  B8") + u2(n + 8) +
                       hex("3A 05  19 05  C6 000F  19 05  3A 02  03  36 03  19 02  BE  36 04") +
                       hex("19 00  19 01  19 02  15 03  15 04  B8") + u2(n + 9) + hex("B0");
    EXPECT_EQ(wrapperCode(result, code.size()), code);
    // method_info: flags in front of the two attributes and the code's frame
    const auto flags =
        result.bytes.end() - 6 - static_cast<std::ptrdiff_t>(code.size()) - 14 - 10 - 8;
    EXPECT_EQ(Bytes(flags, flags + 2), hex("000A"));
}

TEST(LoadInjectorVariants, LongAndDoubleParametersTakeTwoSlots) {
    const char* descriptor = "(JLjava/lang/String;D[BIIF)Ljava/lang/Class;";
    const Built before = build({0x21, -1, descriptor});
    const Rewritten result = rewrite(before.bytes, target(descriptor, {0, 3, 6, 7, 8}));
    ASSERT_TRUE(result.done);
    const unsigned n = before.count;
    const Bytes code = hex("19 00  19 03  19 06  15 07  15 08  B8") + u2(n + 8) +
                       hex("3A 0A  19 0A  C6 000F  19 0A  3A 06  03  36 07  19 06  BE  36 08") +
                       hex("19 00  16 01  19 03  18 04  19 06  15 07  15 08  17 09  B6") +
                       u2(n + 9) + hex("B0");
    EXPECT_EQ(wrapperCode(result, code.size()), code);
    const auto frame = result.bytes.end() - 6 - static_cast<std::ptrdiff_t>(code.size()) - 8;
    EXPECT_EQ(Bytes(frame, frame + 4), hex("000A 000B"))
        << "10 slots of parameters, one local more";
}

TEST(LoadInjectorVariants, EveryCallSiteIsRedirected) {
    ClassFileBuilder builder;
    builder.name("org/acme/L");
    const auto first = builder.methodref("java/lang/ClassLoader", "defineClass", kDefine);
    const auto other = builder.methodref("java/lang/ClassLoader", "findClass", kDefine);
    const auto second = builder.methodref("java/lang/ClassLoader2", "defineClass", kDefine);
    builder.longConstant();
    builder.utf8("Code");
    const Rewritten result = rewrite(builder.build());
    ASSERT_TRUE(result.done);
    Bytes copy = result.bytes;
    const std::unique_ptr<ConstantPool, decltype(&freeConstantPool)> pool(
        parseConstantPool(copy.data() + 8), freeConstantPool);
    const Bytes redirected = hex("0A") + u2(builder.thisSlot()) + u2(builder.poolCount() + 1);
    const auto entry = [&](unsigned slot) {
        return Bytes(pool->entries[slot], pool->entries[slot] + 5);
    };
    EXPECT_EQ(entry(first), redirected);
    EXPECT_EQ(entry(second), redirected) << "the class name is compared over the configured length";
    EXPECT_NE(entry(other), redirected);
}

TEST(LoadInjectorVariants, WithoutExceptionsInThePoolTheirSlotsAreZero) {
    const Rewritten result = rewrite(build({}).bytes);
    ASSERT_TRUE(result.done);
    const Bytes exceptions = hex("0000 00000004 0001 0000");
    const auto at = result.bytes.end() - 6 - 46 - 14 - 10;
    EXPECT_EQ(Bytes(at, at + 10), exceptions);
}

TEST(LoadInjectorVariants, AClassWithNothingToRewriteIsLeftAlone) {
    OwnDefinition noCode;
    noCode.withCode = false;
    EXPECT_FALSE(rewrite(build(noCode).bytes).done);
    for (const char* descriptor : {"(Ljava/lang/String;[BII)Ljava/lang/Klass;", "()V"})
        EXPECT_FALSE(rewrite(build({0x21, -1, descriptor}).bytes).done) << descriptor;
    ClassFileBuilder shorterName;
    shorterName.name("org/acme/L").utf8("Code");
    shorterName.methodref("java/lang/ClassLoade", "defineClass", kDefine);
    EXPECT_FALSE(rewrite(shorterName.build()).done);
}

// The wrapper would take this for the loader, or an int for the bytes, and the VM would refuse it.
TEST(LoadInjectorVariants, SlotsOfTheOtherKindOfMethodLeaveTheClassAlone) {
    struct Case {
        const char* rule;
        int methodAccess;
        const char* descriptor;
        ParameterIndex slots;
        bool done;
    };
    constexpr char kStatic[] = "(Ljava/lang/ClassLoader;Ljava/lang/String;[BII)Ljava/lang/Class;";
    for (const Case& c : {Case{"static", 8, kStatic, {0, 1, 2, 3, 4}, true},
                          Case{"instanceHere", 1, kStatic, {0, 1, 2, 3, 4}, false},
                          Case{"inherited", -1, kStatic, {0, 1, 2, 3, 4}, false},
                          Case{"instance", 1, kStatic, {1, 2, 3, 4, 5}, true},
                          Case{"staticHere", 8, kStatic, {1, 2, 3, 4, 5}, false}})
        EXPECT_EQ(rewrite(build({0x21, c.methodAccess, c.descriptor}).bytes,
                          target(c.descriptor, c.slots))
                      .done,
                  c.done)
            << c.rule;
}

TEST(LoadInjectorVariants, AFullConstantPoolHasNoRoom) {
    for (const unsigned free : {9U, 10U}) {
        ClassFileBuilder builder;
        builder.name("org/acme/L").methodref("java/lang/ClassLoader", "defineClass", kDefine);
        builder.utf8("Code");
        Bytes file = builder.build();
        const unsigned fill = 65535 - free - builder.poolCount();
        Bytes filler;
        for (unsigned i = 0; i < fill; ++i) filler.insert(filler.end(), {3, 0, 0, 0, 0});
        const Bytes count = u2(builder.poolCount() + fill);
        std::copy(count.begin(), count.end(), file.begin() + 8);
        const auto poolEnd = static_cast<std::ptrdiff_t>(8 + builder.pool().size());
        file.insert(file.begin() + poolEnd, filler.begin(), filler.end());
        EXPECT_EQ(rewrite(file).done, free == 10) << free;
    }
}

}  // namespace
