// Looks at velora.jar before the VM's instrument library does: that library ends the VM over a jar
// that it cannot start, and no monitoring may do that.
#pragma once

#include <string>

namespace launch {

// Why the Java side cannot be started from this file; empty when it can. Looked at are the file
// itself (a regular one, so that a pipe in its place holds up nobody), the archive from its
// directory at the end to the check sum of every entry, the class named by the manifest, that
// class, and the number of entries. Our jar holds its entries as they are, so all of this needs no
// decompression; one that was packed anew, with compressed entries, is refused.
std::string troubleWithJar(const std::string& path);

}  // namespace launch
