// Where the Publish Server is, as the Java class com/velora/publish/pe_lookup tells: its static
// method initialize() ("()I", 1 on success) fills the static fields hostName_, port_ and
// sendBuffSize_.
//
// Threads: the network agents share that class, so look-up and reading of the fields are one step
// under one lock. An agent that is being stopped does not wait for it.
#pragma once

#include <jni.h>

#include <functional>
#include <string>

struct PsDetails {
    std::string host;  // dotted IPv4 text
    int port = -1;
    int buffSize = -1;  // bytes of socket send buffer
};

// False when the look-up failed; logged while failures, the count of those before, is below 6.
// Leaves no Java exception pending and no local reference behind.
bool lookUpPs(JNIEnv* env, int failures, const std::function<bool()>& stop, PsDetails* details);
