// Finds and parses the text thread dumps ("javacore...") that some VMs write. Dormant: nothing in
// the collector calls these routines, see diagnostics/threaddump.h.
//
// File names go to buffers of kJavacoreNameSize bytes and are cut there.
// Threads: one caller at a time (the location file is chosen once, into a process-wide buffer).
#pragma once

#include <jni.h>

#include <cstddef>
#include <cstdio>
#include <ctime>

constexpr std::size_t kJavacoreNameSize = 256;

extern char* probe_stdout;      // owned; the server's redirected standard output, null when unknown
extern char* java_version;      // owned; the VM's version text, null when unknown
extern char javacore_loc[256];  // the chosen location file
extern int flag_core_loc;       // 1 once javacore_loc has been chosen

// Copies probe_stdout to filename and its length to *offset. 0; -1 seek failed, -2 not set, -3 not
// opened.
int getProbeStdoutOffset(char* filename, long* offset);

// The dump that the VM last announced in its location file, else the first in the dump directory
// that is not older than filetime (seconds). 0, or -1 when there is none.
int getJavacoreName_unix(char* filename, std::time_t filetime);
int getJavacoreName_unix_dir(char* filename, std::time_t filetime, const char* javacoredir);

// Reads thread tid's stack from a dump of process pid that is not older than current_time, fills
// three array slots a frame and deletes the file. The number of frames.
int processFile(JNIEnv* env, char* filename, unsigned long pid, std::time_t current_time,
                unsigned long tid, jobjectArray& arry);
int processJavaCore(JNIEnv* env, std::FILE* javacore, unsigned long tid, jobjectArray& arry);

// The directory text after the last " : " of /tmp/javacore_locations; the caller frees it with
// array delete. Null when there is none.
char* getJavaCorePath();

std::FILE* getProbeStdout();      // the caller closes it; null when not set or not opened
long seekToEOF(std::FILE* file);  // the size, -1 on failure
