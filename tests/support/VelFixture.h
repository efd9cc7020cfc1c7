// The ground that most unit tests stand on: a VM interface, a Java world and a logging toolkit,
// installed where the collector looks for them, and the invariants that hold after every test.
//
//     class EventAgentTest : public VelFixture {};
//     TEST_F(EventAgentTest, SendsWhatWasQueued) { ... env ... jni.string("x") ...
//     qlog.logged("...") }
//
// A test that ends a native with local references for its caller calls jni.returnToJava(env), as a
// VM does.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "foundation/Globals.h"
#include "foundation/Log.h"
#include "foundation/ProbeQLog.h"
#include "support/FakeJni.h"
#include "support/FakeJvmpi.h"
#include "support/FakeQlog.h"

class VelFixture : public ::testing::Test {
protected:
    VelFixture() : jni(vm), env(jni.env()) {
        jvmpi.store(vm.interface());
        jvm_ptr = vm.vm();
        qlog.addObject("logger.dc.msg");
        qlog.addObject("logger.dc.trace");
        QlgOpenToolkit("");
        qLogger.store(QlgGetObject("logger.dc.msg", nullptr));
        qTracer.store(QlgGetObject("logger.dc.trace", nullptr));
        traceFrom(kDebugMin);
    }

    ~VelFixture() override {
        traceThreshold.store(QLG_LEVEL_OFF);
        qLogger.store(nullptr);
        qTracer.store(nullptr);
        jvm_ptr = nullptr;
        jvmpi.store(nullptr);
    }

    void TearDown() override {
        EXPECT_EQ(vm.heldMonitors(), std::vector<std::string>());
        EXPECT_EQ(vm.violations(), std::vector<std::string>());
        EXPECT_EQ(jni.violations(), std::vector<std::string>());
        EXPECT_EQ(jni.leaks(), std::vector<std::string>());
    }

    // Debug lines from this depth on are kept: kDebugMax all, kDebugMin (at the start) no entry and
    // exit lines.
    void traceFrom(int level) {
        qlog.setProperty("logger.dc.trace", "level", std::to_string(level));
        traceThreshold.store(level);
    }

    FakeQlog qlog;
    FakeJvmpi vm;
    FakeJni jni;
    JNIEnv* env;
};
