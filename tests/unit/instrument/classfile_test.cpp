// Reading and writing class-file bytes: sizes, letters, instructions, and the check that a whole
// file lies within its length.
#include "instrument/classfile.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <ostream>
#include <string>

#include "support/ClassFileBuilder.h"

namespace {

using PoolPtr = std::unique_ptr<ConstantPool, decltype(&freeConstantPool)>;

PoolPtr parse(Bytes& pool) {
    return {parseConstantPool(pool.data()), freeConstantPool};
}

TEST(ConstantPoolTest, IndexesEveryEntry) {
    Bytes pool = hex("0004  01 0002 6162  03 00000001  07 0001  FF");
    const PoolPtr parsed = parse(pool);
    ASSERT_NE(parsed, nullptr);
    EXPECT_EQ(parsed->count, 4);
    EXPECT_EQ(parsed->start, pool.data() + 2);
    EXPECT_EQ(parsed->entries[1], pool.data() + 2);
    EXPECT_EQ(parsed->entries[2], pool.data() + 7);
    EXPECT_EQ(parsed->entries[3], pool.data() + 12);
    EXPECT_EQ(parsed->end, pool.data() + 15);
}

TEST(ConstantPoolTest, AnEightByteConstantTakesTwoSlots) {
    for (const char* tag : {"05", "06"}) {
        Bytes pool = hex("0008 07 0001 07 0001 07 0001 07 0001") + hex(tag) +
                     hex("1122334455667788 08 0001");
        const PoolPtr parsed = parse(pool);
        ASSERT_NE(parsed, nullptr);
        EXPECT_EQ(parsed->entries[5], pool.data() + 14);
        EXPECT_EQ(parsed->entries[6], nullptr);
        EXPECT_EQ(parsed->entries[7], pool.data() + 23);
    }
}

TEST(ConstantPoolTest, UnknownTagsAreRefused) {
    for (int tag = 0; tag < 256; ++tag) {
        const bool known = tag == 1 || (tag >= 3 && tag <= 12);
        Bytes pool =
            hex("0002") + Bytes{static_cast<std::uint8_t>(tag)} + hex("0001 00 00000000 00");
        EXPECT_EQ(parse(pool) != nullptr, known) << tag;
    }
}

TEST(ConstantPoolTest, SizesAreThoseOfTheFormat) {
    const int sizes[] = {0, 0, 0, 5, 5, 9, 9, 3, 3, 5, 5, 5, 5};
    for (int tag = 3; tag < kConstantPoolTags; ++tag) {
        Bytes pool = hex("0002") + Bytes{static_cast<std::uint8_t>(tag)} + Bytes(10, 0);
        EXPECT_EQ(parse(pool)->end - pool.data(), 2 + sizes[tag]) << tag;
    }
}

// A fresh vector per cut, so that asan sees its end.
TEST(ConstantPoolTest, NothingIsReadBehindTheLimit) {
    ClassFileBuilder builder;
    builder.longConstant();
    builder.methodref("a/B", "c", "()V");
    const Bytes whole = builder.pool();
    for (std::size_t n = 0; n < whole.size(); ++n) {
        Bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(n));
        cut.shrink_to_fit();
        EXPECT_EQ(parseConstantPool(cut.data(), cut.data() + n), nullptr) << n;
    }
    Bytes all = whole;
    const PoolPtr parsed(parseConstantPool(all.data(), all.data() + all.size()), freeConstantPool);
    EXPECT_NE(parsed, nullptr);
}

TEST(MemberSizesTest, AttributesAddUp) {
    const Bytes empty = hex("0001 00000000");
    EXPECT_EQ(getAttributeLength(empty.data()), 6);
    const Bytes bare = hex("0001 0002 0003 0000");
    EXPECT_EQ(getMemberLength(bare.data()), 8);
    const Bytes two = hex("0001 0002 0003 0002  0004 00000003 010203  0004 00000000");
    EXPECT_EQ(getMemberLength(two.data()), 8 + 9 + 6);
}

struct DescriptorCase {
    const char* descriptor;
    const char* letters;  // null: no method descriptor
};
void PrintTo(const DescriptorCase& descriptor, std::ostream* out) {
    *out << descriptor.descriptor;
}

class DescriptorTest : public ::testing::TestWithParam<DescriptorCase> {};

TEST_P(DescriptorTest, BecomesLetters) {
    const Bytes text = bytesOf(GetParam().descriptor);
    const auto length = static_cast<USHORT>(text.size());
    EXPECT_EQ(isMethodDescriptor(text.data(), length), GetParam().letters != nullptr);
    if (GetParam().letters == nullptr) return;
    const std::unique_ptr<char, decltype(&std::free)> letters(parseDescriptor(text.data(), length),
                                                              std::free);
    EXPECT_STREQ(letters.get(), GetParam().letters);
}

INSTANTIATE_TEST_SUITE_P(
    Descriptors, DescriptorTest,
    testing::Values(DescriptorCase{"()V", "V"}, DescriptorCase{"(I[Ljava/lang/String;J)V", "IALV"},
                    DescriptorCase{"(ZBCS)J", "IIIIL"}, DescriptorCase{"([[D)[I", "AA"},
                    DescriptorCase{"(FDLa/B;)F", "FDAF"}, DescriptorCase{"", nullptr},
                    DescriptorCase{"(", nullptr}, DescriptorCase{"()", nullptr},
                    DescriptorCase{"I", nullptr}, DescriptorCase{"(V)V", nullptr},
                    DescriptorCase{"(L;)V", nullptr}, DescriptorCase{"(La/B)V", nullptr},
                    DescriptorCase{"([)V", nullptr}, DescriptorCase{"()VV", nullptr},
                    DescriptorCase{"()[", nullptr}));

TEST(OperandTypeTest, LongAndDoubleTakeTwoSlots) {
    for (const char letter : std::string("AIFV"))
        EXPECT_EQ(getOperandTypeSize(letter), 1) << letter;
    for (const char letter : std::string("LD")) EXPECT_EQ(getOperandTypeSize(letter), 2) << letter;
}

// What a writer puts into a buffer of 0xEE, up to where it leaves the cursor.
template <typename Write>
Bytes written(Write write) {
    Bytes buffer(16, 0xEE);
    BYTE* cursor = buffer.data();
    write(&cursor);
    buffer.resize(static_cast<std::size_t>(cursor - buffer.data()));
    return buffer;
}

TEST(EmitterTest, ValuesAreBigEndian) {
    EXPECT_EQ(written([](BYTE** b) { appendUSHORT(b, 0x1234); }), hex("1234"));
    EXPECT_EQ(written([](BYTE** b) { appendULONG(b, 0x12345678); }), hex("12345678"));
    EXPECT_EQ(written([](BYTE** b) { appendBuffer(b, hex("0A0B").data(), 2); }), hex("0A0B"));
}

TEST(EmitterTest, InstructionsHaveTheseBytes) {
    EXPECT_EQ(written([](BYTE** b) { iload(b, 3); }), hex("15 03"));
    EXPECT_EQ(written([](BYTE** b) { xload(b, 'L', 4); }), hex("16 04"));
    EXPECT_EQ(written([](BYTE** b) { xload(b, 'F', 5); }), hex("17 05"));
    EXPECT_EQ(written([](BYTE** b) { xload(b, 'D', 6); }), hex("18 06"));
    EXPECT_EQ(written([](BYTE** b) { aload(b, 255); }), hex("19 FF"));
    EXPECT_EQ(written([](BYTE** b) { istore(b, 3); }), hex("36 03"));
    EXPECT_EQ(written([](BYTE** b) { xstore(b, 'L', 4); }), hex("37 04"));
    EXPECT_EQ(written([](BYTE** b) { xstore(b, 'F', 5); }), hex("38 05"));
    EXPECT_EQ(written([](BYTE** b) { xstore(b, 'D', 6); }), hex("39 06"));
    EXPECT_EQ(written([](BYTE** b) { astore(b, 7); }), hex("3A 07"));
    EXPECT_EQ(written([](BYTE** b) { areturn(b); }), hex("B0"));
    EXPECT_EQ(written([](BYTE** b) { athrow(b); }), hex("BF"));
    EXPECT_EQ(written([](BYTE** b) { invokestatic(b, 0x1234); }), hex("B8 1234"));
    EXPECT_EQ(written([](BYTE** b) { invokespecial(b, 0x1234); }), hex("B7 1234"));
    EXPECT_EQ(written([](BYTE** b) { invokevirtual(b, 0x1234); }), hex("B6 1234"));
    EXPECT_EQ(written([](BYTE** b) { ifnull(b, 0x000F); }), hex("C6 000F"));
    EXPECT_EQ(written([](BYTE** b) { arraylength(b); }), hex("BE"));
    EXPECT_EQ(written([](BYTE** b) { iconst_0(b); }), hex("03"));
}

TEST(EmitterTest, ALargeIndexHasTwoBytesAndNoPrefix) {
    EXPECT_EQ(written([](BYTE** b) { aload(b, 256); }), hex("19 0100"));
    EXPECT_EQ(written([](BYTE** b) { istore(b, 0x0203); }), hex("36 0203"));
}

TEST(EmitterTest, AnUnknownLetterLeavesTheOpcodeUnwritten) {
    EXPECT_EQ(written([](BYTE** b) { xload(b, 'Q', 1); }), hex("EE 01"));
}

TEST(SeparatorsTest, AreExchangedInPlace) {
    char name[] = "a.b/c";
    EXPECT_EQ(dotToSlash(name), name);
    EXPECT_STREQ(name, "a/b/c");
    EXPECT_STREQ(slashToDot(name), "a.b.c");
    EXPECT_EQ(slashToDot(nullptr), nullptr);
}

class WellFormedTest : public ::testing::Test {
protected:
    static bool check(Bytes file) {
        file.shrink_to_fit();
        const PoolPtr pool(parseConstantPool(file.data() + 8, file.data() + file.size()),
                           freeConstantPool);
        return pool != nullptr && isWellFormed(file.data(), static_cast<int>(file.size()), *pool);
    }
    static ClassFileBuilder sample() {
        ClassFileBuilder builder;
        builder.name("a/B").methodref("a/C", "m", "()V");
        const auto name = builder.utf8("f");
        const auto type = builder.utf8("I");
        const auto code = builder.utf8("Code");
        builder.interfaces({2}).field(0, name, type);
        builder.method(1, name, type, 1, u2(code) + u4(2) + hex("AABB"));
        builder.attribute(code, hex("010203"));
        return builder;
    }
};

TEST_F(WellFormedTest, AWholeFileIsAndACutOneIsNot) {
    const Bytes whole = sample().build();
    EXPECT_TRUE(check(whole));
    for (std::size_t n = 10; n < whole.size(); ++n)
        EXPECT_FALSE(check(Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(n))))
            << n;
}

TEST_F(WellFormedTest, ReferencesGoToEntriesOfTheRightKind) {
    const auto with = [](const char* entry) {
        ClassFileBuilder builder = sample();
        builder.add(hex(entry));
        return check(builder.build());
    };
    EXPECT_TRUE(with("07 0001"));        // Class -> Utf8
    EXPECT_FALSE(with("07 0002"));       // Class -> Class
    EXPECT_FALSE(with("07 0000"));       // slot 0
    EXPECT_FALSE(with("07 FFFF"));       // behind the pool
    EXPECT_FALSE(with("0A 0001 0009"));  // Methodref -> Utf8
    EXPECT_FALSE(with("0A 0002 0002"));  // Methodref -> Class, Class
    EXPECT_FALSE(with("0C 0001 0002"));  // NameAndType -> Utf8, Class
    EXPECT_TRUE(with("08 FFFF"));        // not followed here
}

TEST_F(WellFormedTest, AReferenceIntoTheSecondSlotOfALongIsNone) {
    ClassFileBuilder builder = sample();
    const auto slot = builder.longConstant();
    EXPECT_TRUE(check(builder.build()));
    builder.add(hex("07") + u2(slot + 1));
    EXPECT_FALSE(check(builder.build()));
}

TEST_F(WellFormedTest, AnAttributeLongerThanAnythingIsNoOverflow) {
    Bytes file = sample().build();
    const Bytes huge = hex("FFFFFFFF");
    std::copy(huge.begin(), huge.end(), file.end() - 7);  // the length of the class attribute
    EXPECT_FALSE(check(file));
}

}  // namespace
