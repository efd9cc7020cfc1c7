#include "foundation/Identity.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <utility>

#include "foundation/JniScope.h"
#include "foundation/Log.h"
#include "foundation/Utils.h"

namespace {

constexpr char kUnknownVersion[] = "0.0.0";

char veloraHome[256] = "";
char node[256] = "";
char appServer[256] = "";
char profile[256] = "";
char bootClass[256] = "";
char version[100] = "0.0.0";
char component[256] = "";
std::atomic<int> port{0};  // read by the agents' loops when a connection opens; no order needed
// Never destroyed: natives may still run at exit.
std::vector<std::string>& arguments = *new std::vector<std::string>;

template <std::size_t size>
void copyText(char (&to)[size], const char* from) {
    std::snprintf(to, size, "%s", from == nullptr ? "" : from);
}

bool isEmpty(const char* text) {
    return text == nullptr || text[0] == '\0';
}

}  // namespace

const char* Identity::home() {
    return veloraHome;
}
const char* Identity::nodeName() {
    return node;
}
const char* Identity::appServerName() {
    return appServer;
}
const char* Identity::profileName() {
    return profile;
}
const char* Identity::bootClassName() {
    return bootClass;
}

void Identity::set(const char* newHome, const char* newNode, const char* newServer,
                   const char* newProfile) {
    copyText(veloraHome, newHome);
    copyText(node, newNode);
    copyText(appServer, newServer);
    copyText(profile, newProfile);
}

void Identity::setBootClassName(const char* name) {
    copyText(bootClass, name);
    std::replace(bootClass, bootClass + std::strlen(bootClass), '.', '/');
}

const char* Identity::appServerVersion() {
    return version;
}
const char* Identity::componentId() {
    return component;
}
int Identity::adminPort() {
    return port.load(std::memory_order_relaxed);
}

void Identity::setAppServerVersion(const char* text) {
    if (!isEmpty(text)) copyText(version, text);
}
void Identity::setComponentId(const char* id) {
    if (!isEmpty(id)) copyText(component, id);
}
void Identity::setAdminPort(int number) {
    port.store(number, std::memory_order_relaxed);
}

void Identity::forgetServer() {
    copyText(version, kUnknownVersion);
    copyText(component, "");
    setAdminPort(0);
}

const std::vector<std::string>& Identity::vmArguments() {
    return arguments;
}
void Identity::setVmArguments(std::vector<std::string> given) {
    arguments = std::move(given);
}

bool getFullAppServerName(JNIEnv* env, char* buffer, int size) {
    VEL_TRACE("getFullAppServerName(JNIEnv*, char*, int)");
    if (env == nullptr || buffer == nullptr || size <= 0 || handleJavaException(env)) return false;
    const LocalRef probeSystem(env, env->FindClass("com/velora/probe/ProbeSystem"));
    if (handleJavaException(env) || !probeSystem) return false;
    const jmethodID method =
        env->GetStaticMethodID(probeSystem.get(), "fullAppServerName", "()Ljava/lang/String;");
    if (handleJavaException(env) || method == nullptr) return false;
    const LocalRef name(
        env, static_cast<jstring>(env->CallStaticObjectMethod(probeSystem.get(), method)));
    if (handleJavaException(env) || !name) return false;
    const UtfChars chars(env, name.get());
    if (handleJavaException(env) || chars.get() == nullptr) return false;
    std::size_t length = std::strlen(chars.get());
    if (length >= static_cast<std::size_t>(size)) {
        length = static_cast<std::size_t>(size) - 1;
        while (length > 0 && (chars.get()[length] & 0xC0) == 0x80) --length;
    }
    std::memcpy(buffer, chars.get(), length);
    buffer[length] = '\0';
    return true;
}
