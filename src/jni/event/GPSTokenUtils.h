// Issues the correlation tokens of cross-server calls: 32-bit numbers whose high bits name a region
// of servers and whose low bits count, unique across restarts through a counter file.
//
// Threads: getToken() on application threads, saveGPSToken() on event agent threads, each under its
// own lock; setUpGps() once, from the controller's Java thread.
#pragma once

#include <jni.h>

#include <cstdint>
#include <string>

class GPSTokenUtils {
public:
    GPSTokenUtils() = delete;

    // regMask: '0' and '1' characters, most significant first; the region bits. Null or empty:
    // none. More than 31 characters are refused with an error (1171) and change nothing; any other
    // character counts as '0'. Repeated calls only add region bits. Reads the counter file.
    static void setUpGps(JNIEnv* env, jstring regMask);
    static void setUpGps(const char* regMask);

    // The next token; from 0 and without region bits while nothing has been set up.
    [[nodiscard]] static unsigned getToken();

    // The encoder's note of each token that it has written into a packet: no lock, no file.
    static void noteToken(unsigned token);
    // Before the packet is handed on: saves what has been noted since the last call, as
    // saveGPSToken() of each token would.
    static void saveNotedTokens();

    // Called with each token that goes to the server. Once a token passes the saved high-water mark
    // the mark moves on by the cushion and is written to the counter file; a failure is only
    // logged.
    static void saveGPSToken(unsigned token);

    // Reads the counter file into the two words, making it ("0") when it cannot be read.
    static void initGPSCounterFile();

    // <home>/etc/<node>.<server>.veloraGpsCounter.txt; a missing part is named as at start-up.
    static std::string counterFilePath();

private:
    friend class GPSTokenAccess;  // tests, which leave the process as they found it
    static void forget();         // as before the first set-up
};
