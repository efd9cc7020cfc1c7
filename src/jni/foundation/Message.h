// What a numbered operator message is. The messages themselves are in Messages.h, which only those
// include that log one: a new message must not compile everything anew.
#pragma once

enum class MessageLevel { info, warn, error, fatal };

struct Message {
    int number;
    MessageLevel level;
    const char* text;
};
