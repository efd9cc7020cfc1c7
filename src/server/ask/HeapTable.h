// The heap summary of a monitored server as a table, largest first.
//
// The summary is text, as the server's collector makes it:
//
//   totalBytes,totalObjects
//   class,bytes,%,objects,%        a line for each class, in the VM's slash form
//   primitive[],bytes,%,objects,%
//   object[],bytes,%,objects,%     the last line
//
// Numbers are unsigned and of 32 bits; a percentage of an empty heap is "nan" or "-nan".
#pragma once

#include <istream>
#include <string>

#include "server/model/LineSink.h"

namespace server {

// False when the text, which is untrusted, is no whole heap summary: nothing is written then, and
// wrong names the line and what should stand there.
bool showHeap(std::istream& in, LineSink& out, std::string& wrong);

}  // namespace server
