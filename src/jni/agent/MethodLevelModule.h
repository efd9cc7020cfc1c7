// Natives for methods whose ids come from Java instrumentation instead of the VM.
//
// com.velora.command.MethodLevelModule
//     static void initializeClass(int classId, String className, int[] methodIds, String[]
//     methodNames,
//                                 String[] methodSignatures)
//     static void unloadClass(int classId, String className, int[] methodIds)
// com.velora.probe.l3trace.BcmRuntime
//     static boolean appendL3Event(byte phase, int methodId)     phase 0: entry, 1: exit
//     static boolean sendClassEventNative(int classId, String className, int[] methodIds,
//                                         String[] methodNames, String[] methodSignatures)
//     static boolean sendClassUnloadEventNative(int classId, String className, int[] methodIds)
//
// The contract with Java: class ids and method ids are chosen by Java, are not 0, and are unique in
// the process; the three arrays have the same length. A class is announced before its first method
// event. An announcement registers the class in the class and method tables (once; repeating it, as
// after a reconnection, only sends the record again) and queues a class-load event, which is never
// dropped, so that the Publish Server can name the methods. A withdrawal is the reverse. The
// results tell whether an event was queued; a null name, arrays of different lengths or a disabled
// probe give false.
#pragma once

#include <jni.h>

// For servers with a just-in-time compiler that had to be told to leave monitored classes alone.
// Today's VMs keep method events exact by themselves: does nothing.
void turnOffJitOfApps();
