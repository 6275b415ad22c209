// The integer names that all code uses, and the result type of socket operations.
#pragma once

#include <cstdint>

using UInt8 = std::uint8_t;
using UInt16 = std::uint16_t;
using UInt32 = std::uint32_t;
using UInt64 = std::uint64_t;
using SInt8 = std::int8_t;
using SInt32 = std::int32_t;
using SInt64 = std::int64_t;
using Bool = bool;

// 0 or a POSIX errno value.
using OS_Error = SInt32;
inline constexpr OS_Error OS_NoErr = 0;
