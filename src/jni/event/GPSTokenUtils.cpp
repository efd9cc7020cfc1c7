#include "event/GPSTokenUtils.h"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>

#include "foundation/Globals.h"
#include "foundation/Identity.h"
#include "foundation/Log.h"
#include "foundation/Messages.h"
#include "foundation/PropertyMgr.h"
#include "foundation/Utils.h"
#include "foundation/VelLock.h"
#include "os/RegularFile.h"

namespace {

constexpr char GPS_COUNTER_FILE[] = "veloraGpsCounter.txt";
constexpr std::size_t kLongestMask = 31;  // one counter bit has to be left
constexpr long kDefaultCushion = 200;
constexpr long kLargestCushion = 1'000'000;

// These and counterFile are made while the library loads and never destroyed: threads of the server
// outlive our destructors.
VelLock& getTokenLock = *new VelLock;   // serialises issuing
VelLock& saveTokenLock = *new VelLock;  // guards the settings below and the counter file

std::uint32_t regionId = 0;                   // the region bits of every token
std::uint32_t gpsMask = 0xFFFFFFFFU;          // the counter bits
std::uint32_t gpsCushion = kDefaultCushion;   // tokens between two writes of the file
std::uint32_t gpsCounter = 0;                 // what the counter file held at set-up
std::string& counterFile = *new std::string;  // empty until set up: nothing is written

enum TokenWord { kNext, kCeiling };
// The next token and the saved high-water mark. Atomics: the mark is compared before saveTokenLock
// is taken, and both work before there is a VM interface, when a VelLock cannot be entered yet.
std::atomic<std::uint32_t> tokenPtr[2];

// The highest token noted and how many, until they are saved; event agents may note at once.
std::atomic<std::uint32_t> notedToken{0};
std::atomic<int> notedCount{0};

const char* orDefault(const char* text, const char* otherwise) {
    return text != nullptr && *text != '\0' ? text : otherwise;
}

// The number at the start of the file as "%u" reads it; 0 when there is none or it is no 32-bit
// number.
std::uint32_t readCounter(std::FILE* file) {
    char text[32] = {};
    if (std::fgets(text, sizeof text, file) == nullptr) return 0;
    char* end = nullptr;
    errno = 0;
    const unsigned long value = std::strtoul(text, &end, 10);
    const bool usable = end != text && errno == 0 && std::strchr(text, '-') == nullptr &&
                        value <= std::numeric_limits<std::uint32_t>::max();
    return usable ? static_cast<std::uint32_t>(value) : 0;
}

// False when the file cannot be opened for writing.
bool writeCounter(std::uint32_t value) {
    std::FILE* const file =
        counterFile.empty() ? nullptr : os::fopenRegular(counterFile.c_str(), "w+");
    if (file == nullptr) return false;
    std::fprintf(file, "%u", value);
    std::fclose(file);
    return true;
}

void initCounterFileLocked() {
    counterFile = GPSTokenUtils::counterFilePath();
    VEL_DEBUG_MIN("initGPSCounterFile", "counter file is: %s", counterFile.c_str());
    gpsCounter = 0;
    notedToken.store(0, std::memory_order_relaxed);
    if (std::FILE* const file = os::fopenRegular(counterFile.c_str(), "r"); file != nullptr) {
        gpsCounter = readCounter(file);
        std::fclose(file);
    } else if (!writeCounter(0)) {
        VEL_DEBUG_MIN("initGPSCounterFile", "counterFp = NULL for writing");
    }
    const std::uint32_t first = (gpsCounter & gpsMask) | regionId;
    const VelLockGuard issuing(getTokenLock);
    tokenPtr[kNext].store(first, std::memory_order_relaxed);
    tokenPtr[kCeiling].store(first, std::memory_order_relaxed);
}

}  // namespace

void GPSTokenUtils::setUpGps(JNIEnv* env, jstring regMask) {
    VEL_TRACE("GPSTokenUtils::setUpGps(JNIEnv*, jstring)");
    const std::unique_ptr<char[]> text(env == nullptr ? nullptr
                                                      : Utils::java2c_string(env, regMask));
    setUpGps(text.get());
}

void GPSTokenUtils::setUpGps(const char* regMask) {
    const char* const mask = regMask == nullptr ? "" : regMask;
    const std::size_t length = std::strlen(mask);
    if (length > kLongestMask) {
        logMessage(msg::kGpsMaskTooLong, mask);
        return;
    }
    std::uint32_t regionBits = 0;
    for (std::size_t i = 0; i < length; ++i)
        if (mask[i] == '1') regionBits |= 1U << (31 - i);
    VEL_DEBUG_MIN("setUpGps", "regMask: 0x%X", regionBits);

    const VelLockGuard saving(saveTokenLock);
    regionId |= regionBits;
    gpsMask = 0xFFFFFFFFU >> length;
    VEL_DEBUG_MIN("setUpGps", "regionId: 0x%X", regionId);
    VEL_DEBUG_MIN("setUpGps", "gpsMask: 0x%X", gpsMask);
    const PropertyMgr* const properties = propMgr_.load(std::memory_order_acquire);
    gpsCushion = static_cast<std::uint32_t>(
        properties == nullptr
            ? kDefaultCushion
            : properties->getBoundedProperty("gps.cushion", kDefaultCushion, 1, kLargestCushion));
    initCounterFileLocked();
}

unsigned GPSTokenUtils::getToken() {
    VEL_TRACE("GPSTokenUtils::getToken()");
    const VelLockGuard issuing(getTokenLock);
    // Intended: the step is not masked, a counter that runs over reaches the region bits.
    return tokenPtr[kNext].fetch_add(1, std::memory_order_relaxed);
}

void GPSTokenUtils::saveGPSToken(unsigned token) {
    VEL_TRACE("GPSTokenUtils::saveGPSToken(unsigned int)");
    if (token <= tokenPtr[kCeiling].load(std::memory_order_relaxed)) return;
    const VelLockGuard saving(saveTokenLock);
    const std::uint32_t ceiling = tokenPtr[kCeiling].load(std::memory_order_relaxed);
    if (token <= ceiling) return;  // another event agent has just moved the mark
    const std::uint32_t next = (ceiling & gpsMask) + gpsCushion;
    tokenPtr[kCeiling].store((next & gpsMask) | regionId, std::memory_order_relaxed);
    // Intended: the file gets the unmasked sum; it is masked when it is read.
    if (!writeCounter(next)) VEL_DEBUG_MIN("saveGPSToken", "counterFp is NULL for writing");
}

void GPSTokenUtils::noteToken(unsigned token) {
    std::uint32_t highest = notedToken.load(std::memory_order_relaxed);
    while (token > highest && !notedToken.compare_exchange_weak(highest, token)) {
    }
    notedCount.fetch_add(1, std::memory_order_release);
}

// One step of the mark for each token at most: a token that has run over into the region bits stays
// above the mark for ever.
void GPSTokenUtils::saveNotedTokens() {
    if (notedCount.load(std::memory_order_relaxed) == 0) return;
    const int steps = notedCount.exchange(0, std::memory_order_acquire);
    const std::uint32_t highest = notedToken.load(std::memory_order_relaxed);
    for (int i = 0; i < steps && highest > tokenPtr[kCeiling].load(std::memory_order_relaxed); ++i)
        saveGPSToken(highest);
}

void GPSTokenUtils::initGPSCounterFile() {
    VEL_TRACE("GPSTokenUtils::initGPSCounterFile()");
    const VelLockGuard saving(saveTokenLock);
    initCounterFileLocked();
}

void GPSTokenUtils::forget() {
    regionId = 0;
    gpsMask = 0xFFFFFFFFU;
    gpsCushion = kDefaultCushion;
    counterFile.clear();
    tokenPtr[kNext] = tokenPtr[kCeiling] = 0;
    notedToken = 0;
    notedCount = 0;
}

std::string GPSTokenUtils::counterFilePath() {
    std::string path = orDefault(Identity::home(), "/velora");
    path += "/etc/";
    path += orDefault(Identity::nodeName(), "defaultnode");
    path += '.';
    path += orDefault(Identity::appServerName(), "appserver");
    path += '.';
    path += GPS_COUNTER_FILE;
    return path;
}
