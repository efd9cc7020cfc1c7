// Which parameter of a method lies in which local-variable slot, read off its descriptor.
//
// Pure functions of text, no allocation. Descriptors have passed isMethodDescriptor().
#pragma once

#include <string_view>

#include "instrument/LoadInjector.h"

// Slots that the parameters take, with that of "this" for an instance method.
int parameterSlots(std::string_view descriptor, bool isStatic);

// True when the slots hold what the wrapper takes from them in a static or an instance method: an
// object that may be a class loader, a String, a byte array and two ints, each in a slot of its
// own. Anything else would make the VM refuse the class that holds the wrapper, or the classes that
// go through it.
bool slotsFit(std::string_view descriptor, const ParameterIndex& at, bool isStatic);
