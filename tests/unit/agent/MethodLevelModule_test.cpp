// Classes and method events that come from Java instrumentation.
#include "agent/MethodLevelModule.h"

#include <string>

#include "instrument/class.h"
#include "support/CaptureFixture.h"

namespace {

jmethodID methodId(std::uintptr_t id) {
    return reinterpret_cast<jmethodID>(id);
}

class MethodLevelTest : public CaptureFixture {
protected:
    void SetUp() override {
        ProbeMgr::csInitialize(env);
        createMethodTable();
        createClassTable();
    }
    void TearDown() override {
        deleteClassTable();
        deleteMethodTable();
        CaptureFixture::TearDown();
    }
    bool announce(jint id, const char* name = "org.acme.A", std::vector<jint> ids = {70, 71}) {
        return Java_com_velora_probe_l3trace_BcmRuntime_sendClassEventNative(
                   env, nullptr, id, name == nullptr ? nullptr : jni.string(name),
                   jni.intArray(ids), jni.stringArray({"run", "stop"}),
                   jni.stringArray({"()V", nullptr})) == JNI_TRUE;
    }
    bool withdraw(jint id) {
        return Java_com_velora_probe_l3trace_BcmRuntime_sendClassUnloadEventNative(
                   env, nullptr, id, jni.string("x"), nullptr) == JNI_TRUE;
    }
};

TEST_F(MethodLevelTest, AnAnnouncedClassIsRegisteredAndSent) {
    ASSERT_TRUE(announce(7));
    const auto event = takeOne<ClassEvent>();
    ASSERT_NE(event, nullptr);
    EXPECT_EQ(event->getSubType(), LOAD);
    EXPECT_EQ(event->threadId_, thread->getThreadIntId());
    const jclass_t& sent = *event->classData;
    EXPECT_STREQ(sent.class_name, "org/acme/A");
    EXPECT_EQ(sent.delete_flag, 0);
    EXPECT_EQ(sent.type, 0);
    EXPECT_EQ(sent.methods[1].method_id, methodId(71));
    EXPECT_STREQ(sent.methods[0].method_name, "run");
    EXPECT_STREQ(sent.methods[1].method_signature, "") << "a record has a place for every text";
    const jmethod_t* const found = getMethod(methodId(70));
    ASSERT_NE(found, nullptr);
    EXPECT_NE(found->clazz, &sent) << "the event carries a copy";
    EXPECT_EQ(found->type, 0);
    EXPECT_EQ(jni.localRefs(env), 0);
}

TEST_F(MethodLevelTest, AnnouncingAgainOnlySendsAgain) {
    ASSERT_TRUE(announce(7));
    const ULONG sequence = takeOne<ClassEvent>()->classData->sequenceID;
    ASSERT_TRUE(announce(7));
    EXPECT_EQ(takeOne<ClassEvent>()->classData->sequenceID, sequence);
    EXPECT_EQ(getCurrentClassSequence(), sequence);
}

TEST_F(MethodLevelTest, AWithdrawnClassIsGone) {
    ASSERT_TRUE(announce(7));
    ASSERT_TRUE(announce(8, "org.acme.B", {80, 81}));
    take();
    EXPECT_TRUE(withdraw(7)) << "although the table's look-up would never find the oldest";
    const auto event = takeOne<ClassEvent>();
    ASSERT_NE(event, nullptr);
    EXPECT_EQ(event->getSubType(), UNLOAD);
    EXPECT_EQ(event->classData->class_id, reinterpret_cast<jobjectID>(7));
    EXPECT_EQ(getMethod(methodId(70)), nullptr);
    EXPECT_NE(getMethod(methodId(80)), nullptr);
    EXPECT_FALSE(withdraw(7));
    EXPECT_TRUE(announce(7)) << "and may come back";
    take();
}

TEST_F(MethodLevelTest, ClassEventsPassTheMemoryGateMethodEventsDoNot) {
    closeGate();
    EXPECT_TRUE(announce(7));
    EXPECT_EQ(Java_com_velora_probe_l3trace_BcmRuntime_appendL3Event(env, nullptr, 0, 70),
              JNI_FALSE);
    const auto events = take();
    ASSERT_EQ(events.size(), 2U);
    EXPECT_EQ(events[0]->getType(), CLASS);
    EXPECT_EQ(events[1]->getType(), DROPPED);
}

TEST_F(MethodLevelTest, UnusableDescriptionsAreRefused) {
    EXPECT_FALSE(announce(0));
    EXPECT_FALSE(announce(7, nullptr));
    EXPECT_FALSE(announce(7, "a.B", {1, 2, 3}));
    EXPECT_EQ(Java_com_velora_probe_l3trace_BcmRuntime_sendClassEventNative(
                  env, nullptr, 7, jni.string("a.B"), nullptr, nullptr, nullptr),
              JNI_FALSE);
    disableProbe();
    EXPECT_FALSE(announce(7));
    EXPECT_FALSE(withdraw(7));
    EXPECT_EQ(getCurrentClassSequence(), 0U);
}

TEST_F(MethodLevelTest, EntryAndExitBecomeMethodEvents) {
    for (const jbyte phase : {jbyte{0}, jbyte{1}}) {
        EXPECT_EQ(Java_com_velora_probe_l3trace_BcmRuntime_appendL3Event(env, nullptr, phase, 70),
                  JNI_TRUE);
        const auto event = takeOne<MethodEvent>();
        ASSERT_NE(event, nullptr);
        EXPECT_EQ(event->getSubType(), phase == 0 ? START : END);
        EXPECT_EQ(event->method_id, methodId(70));
        EXPECT_EQ(event->threadId_, thread->getThreadIntId());
        EXPECT_GT(event->timeSec_, 0U);
    }
}

TEST_F(MethodLevelTest, TheModulesNativesDoTheSame) {
    Java_com_velora_command_MethodLevelModule_initializeClass(
        env, nullptr, 9, jni.string("org/acme/C"), jni.intArray({90}), jni.stringArray({"m"}),
        jni.stringArray({"()V"}));
    EXPECT_NE(takeOne<ClassEvent>(), nullptr);
    EXPECT_NE(getMethod(methodId(90)), nullptr);
    Java_com_velora_command_MethodLevelModule_unloadClass(env, nullptr, 9, nullptr, nullptr);
    EXPECT_NE(takeOne<ClassEvent>(), nullptr);
    EXPECT_EQ(getMethod(methodId(90)), nullptr);
}

}  // namespace
