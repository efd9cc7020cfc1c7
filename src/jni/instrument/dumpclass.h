// Writes class bytes to a file for a developer to look at, when the configuration asks for it.
#pragma once

#include "instrument/LoadInjector.h"

// Writes <dump path><name with '/' as '.'>.class; the dump path is a plain prefix. Nothing when
// dumping is off or the file cannot be opened. class_name need not be terminated; class_name_length
// is in bytes.
void dumpClass(const char* class_name, int class_name_length, const ClassData* data);
