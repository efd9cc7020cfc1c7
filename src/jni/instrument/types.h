// The integer names of the class tables and the class-file code. Widths are part of their meaning:
// they are the u1, u2 and u4 of a class file and the widths of the table records.
#pragma once

#include <cstdint>

using BYTE = std::uint8_t;
using UCHAR = std::uint8_t;
using USHORT = std::uint16_t;
using ULONG = std::uint32_t;
using BOOL = bool;
