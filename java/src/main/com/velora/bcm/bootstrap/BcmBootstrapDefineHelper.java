package com.velora.bcm.bootstrap;

/** Binds natives of boot-loaded runtime classes; the collector registers the native when the VM is up. */
final class BcmBootstrapDefineHelper {
    private BcmBootstrapDefineHelper() {
    }

    static native void defineNativeMethodsForClassNative(Class<?> runtimeClass, String className);
}
