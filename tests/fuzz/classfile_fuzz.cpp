// Shows the class-load hook whatever bytes the fuzzer invents. It must neither read nor write
// outside them, must always answer, and what it rewrites must read as well as what it was given.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "instrument/InstrumentConfig.h"
#include "instrument/InstrumentJNI.h"

namespace {

constexpr char kDefine[] = "(Ljava/lang/String;[BII)Ljava/lang/Class;";
constexpr char kWide[] = "(JLjava/lang/String;D[BIIF)Ljava/lang/Class;";

DefineClassMethod target(const char* from, const char* descriptor, ParameterIndex at) {
    return {from,
            static_cast<ULONG>(std::strlen(from)),
            "java/lang/ClassLoader",
            21,
            "defineClass",
            descriptor,
            at,
            false};
}

void configure() {
    InstrumentConfig& config = instrumentConfig();
    config.instrumentDefineClass = true;
    config.classLoaders = {target("org/acme/L", kDefine, {0, 1, 2, 3, 4}),
                           target("org/acme/L", kWide, {0, 3, 6, 7, 8})};
    config.proxies = {target("org/acme/P", kDefine, {0, 1, 2, 3, 4})};
    instrumentedClassLoader = false;
    instrumentedProxy = false;
}

void* takeMemory(unsigned int size) {
    return std::malloc(size);
}

void require(bool holds) {
    if (!holds) std::abort();
}

// What came back parses, and has ten pool entries more.
void checkRewritten(const std::vector<std::uint8_t>& before, unsigned char* bytes, int length) {
    const std::unique_ptr<ConstantPool, decltype(&freeConstantPool)> pool(
        parseConstantPool(bytes + 8, bytes + length), freeConstantPool);
    require(pool != nullptr && isWellFormed(bytes, length, *pool));
    require(pool->count == readUSHORT(before.data() + 8) + 10);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    configure();
    std::vector<std::uint8_t> bytes(data, data + size);
    JVMPI_Event event{};
    auto& hook = event.u.class_load_hook;
    hook.class_data = bytes.data();
    hook.class_data_len = static_cast<jint>(bytes.size());
    hook.malloc_f = takeMemory;
    notifyClassLoadHookEvent(&event);
    require(std::equal(bytes.begin(), bytes.end(), data));
    if (hook.new_class_data == bytes.data()) {
        require(hook.new_class_data_len == hook.class_data_len);
    } else {
        checkRewritten(bytes, hook.new_class_data, hook.new_class_data_len);
        std::free(hook.new_class_data);
    }
    return 0;
}
