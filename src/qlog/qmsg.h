// What libqlog calls in its companion libqmsg: message texts from POSIX catalogues. Plain C,
// because each of the libraries carries a C++ runtime of its own.
//
// Threads: any. Failure: -1, never anything thrown.
#pragma once

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

// Copies the text with that set and number, NUL-terminated, to text, which has room bytes. Returns
// its length, or -1 when there is no such catalogue or text, or when it does not fit.
int qmsgi_lookup(const char* catalogue, int set, int number, char* text, size_t room);

// Catalogues are searched and opened anew at their next look-up.
void qmsgi_forget(void);

#ifdef __cplusplus
}
#endif
