// Writes the class files of tests/golden/classfile: classfile_fuzz_seeds <folder>. They are the
// fuzzer's first inputs, and a unit test shows each to the hook: those named rewritten-* must be
// rewritten, the others not.
#include <cstdio>
#include <fstream>
#include <string>

#include "support/ClassFileBuilder.h"

namespace {

constexpr char kDefine[] = "(Ljava/lang/String;[BII)Ljava/lang/Class;";
constexpr char kWide[] = "(JLjava/lang/String;D[BIIF)Ljava/lang/Class;";

ClassFileBuilder loader(const char* name, const char* descriptor = kDefine) {
    ClassFileBuilder builder;
    builder.name(name).methodref("java/lang/ClassLoader", "defineClass", descriptor);
    builder.clazz("java/lang/ClassFormatError");
    builder.utf8("Exceptions");
    return builder;
}

// A loader with everything that has to be skipped or copied: interfaces, fields, methods,
// attributes.
ClassFileBuilder fullLoader() {
    ClassFileBuilder builder = loader("org/acme/L");
    const auto code = builder.utf8("Code");
    const auto source = builder.utf8("SourceFile");
    const auto name = builder.utf8("count");
    const auto type = builder.utf8("J");
    builder.longConstant();
    builder.interfaces(
        {builder.clazz("java/io/Serializable"), builder.clazz("java/lang/Cloneable")});
    builder.field(2, name, type).field(0x19, name, type);
    builder.method(1, name, type, 1, u2(code) + u4(13) + hex("0001 0001 00000001 B1 0000 0000"));
    builder.attribute(source, u2(source)).attribute(code, {});
    return builder;
}

void write(const std::string& folder, const char* name, const Bytes& bytes) {
    std::ofstream file(folder + "/" + name + ".classfile", std::ios::binary);
    file.write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
    if (!file) std::perror(name);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: classfile_fuzz_seeds <folder>\n");
        return 2;
    }
    const std::string folder = argv[1];
    const Bytes full = fullLoader().build();
    write(folder, "rewritten-full", full);
    ClassFileBuilder small = loader("org/acme/L");
    small.utf8("Code");
    write(folder, "rewritten-small", small.version(45, 3).build());
    ClassFileBuilder wide = loader("org/acme/L", kWide);
    wide.utf8("Code");
    write(folder, "rewritten-wide", wide.version(48).build());
    ClassFileBuilder proxy = loader("org/acme/P");
    proxy.utf8("Code");
    write(folder, "rewritten-proxy", proxy.version(47).build());
    write(folder, "no-code", loader("org/acme/L").build());
    write(folder, "another-class", loader("org/acme/Other").build());
    write(folder, "too-new", fullLoader().version(49).build());
    write(folder, "cut", Bytes(full.begin(), full.end() - 9));
    return 0;
}
