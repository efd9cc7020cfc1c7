// What other agents do to classes that are loaded already, through the VM's own tool interface.
#include <jni.h>
#include <jvmti.h>

namespace {

// An environment that may change classes; its owner disposes of it. Null: the VM refuses.
jvmtiEnv* openChanger(JNIEnv* env) {
    JavaVM* vm = nullptr;
    void* found = nullptr;
    if (env->GetJavaVM(&vm) != JNI_OK || vm->GetEnv(&found, JVMTI_VERSION_1_2) != JNI_OK)
        return nullptr;
    auto* const changer = static_cast<jvmtiEnv*>(found);
    jvmtiCapabilities wanted{};
    wanted.can_redefine_classes = 1;
    wanted.can_retransform_classes = 1;
    if (changer->AddCapabilities(&wanted) == JVMTI_ERROR_NONE) return changer;
    changer->DisposeEnvironment();
    return nullptr;
}

}  // namespace

// Retransforms the class, or redefines it when bytes are given. The VM's error number, 0: done.
extern "C" JNIEXPORT jint JNICALL Java_TestAgent_change(JNIEnv* env, jclass, jclass type,
                                                        jbyteArray bytes) {
    jvmtiEnv* const changer = openChanger(env);
    if (changer == nullptr) return JVMTI_ERROR_MUST_POSSESS_CAPABILITY;
    jvmtiError error = JVMTI_ERROR_NONE;
    if (bytes == nullptr) {
        error = changer->RetransformClasses(1, &type);
    } else {
        jbyte* const content = env->GetByteArrayElements(bytes, nullptr);
        const jvmtiClassDefinition definition{type, env->GetArrayLength(bytes),
                                              reinterpret_cast<unsigned char*>(content)};
        error = changer->RedefineClasses(1, &definition);
        env->ReleaseByteArrayElements(bytes, content, JNI_ABORT);
    }
    changer->DisposeEnvironment();
    return error;
}
