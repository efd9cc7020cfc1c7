// The proxy VM: what it answers itself, what it leaves to the real one.
#include "jvmpi/VmProxy.h"

#include <gtest/gtest.h>

namespace adapter {
namespace {

JavaVM* asked = nullptr;  // whom the fake VM's functions were called with
jint version = 0;

jint JNICALL fakeGetEnv(JavaVM* vm, void** env, jint wanted) {
    asked = vm;
    version = wanted;
    *env = vm;
    return JNI_OK;
}

jint JNICALL fakeAttach(JavaVM* vm, void**, void*) {
    asked = vm;
    return -5;
}

jint JNICALL fakeSimple(JavaVM* vm) {
    asked = vm;
    return -6;
}

TEST(VmProxy, KnowsTheProfilerInterfaceAndForwardsTheRest) {
    static JNIInvokeInterface_ functions{};
    functions.reserved0 = &functions;
    functions.GetEnv = fakeGetEnv;
    functions.AttachCurrentThread = fakeAttach;
    functions.AttachCurrentThreadAsDaemon = fakeAttach;
    functions.DetachCurrentThread = fakeSimple;
    functions.DestroyJavaVM = fakeSimple;
    static JavaVM vm{&functions};
    static JVMPI_Interface table{};

    JavaVM* proxy = makeVmProxy(&vm, &table);
    ASSERT_NE(proxy, &vm);
    EXPECT_EQ(makeVmProxy(&vm, &table), proxy);
    EXPECT_EQ(proxy->functions->reserved0, &functions);

    for (const jint known : {JVMPI_VERSION_1, JVMPI_VERSION_1_1, JVMPI_VERSION_1_2}) {
        void* env = nullptr;
        EXPECT_EQ(proxy->GetEnv(&env, known), JNI_OK);
        EXPECT_EQ(env, &table);
    }
    for (const jint unknown : {0x10000000, 0x10000004, 0x1FFFFFFF}) {
        void* env = &vm;
        EXPECT_EQ(proxy->GetEnv(&env, unknown), JNI_EVERSION);
        EXPECT_EQ(env, nullptr);
    }
    EXPECT_EQ(asked, nullptr) << "the VM was asked for a profiler interface";

    for (const jint other : {static_cast<jint>(JNI_VERSION_1_8), 0x30010200, 0x20000000,
                             static_cast<jint>(0x90000001)}) {
        void* env = nullptr;
        asked = nullptr;
        EXPECT_EQ(proxy->GetEnv(&env, other), JNI_OK);
        EXPECT_EQ(asked, &vm);
        EXPECT_EQ(version, other);
    }
    for (const jint result : {proxy->AttachCurrentThread(nullptr, nullptr),
                              proxy->AttachCurrentThreadAsDaemon(nullptr, nullptr)}) {
        EXPECT_EQ(result, -5);
    }
    asked = nullptr;
    EXPECT_EQ(proxy->DetachCurrentThread(), -6);
    EXPECT_EQ(asked, &vm);
    asked = nullptr;
    EXPECT_EQ(proxy->DestroyJavaVM(), -6);
    EXPECT_EQ(asked, &vm);
}

}  // namespace
}  // namespace adapter
