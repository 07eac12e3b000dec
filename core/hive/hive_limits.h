// Bounds on what is read from a registry hive, so that a damaged or hostile store gives a shorter dump
// instead of exhausting memory. A boot configuration store holds some hundred keys with values of at most
// a few KiB (device elements are the largest), so these never cut a sound one.
#pragma once

#include <cstddef>

namespace Hive {

inline constexpr std::size_t kMaxValueBytes = 64 * 1024;
inline constexpr std::size_t kMaxValuesPerKey = 4096;
inline constexpr std::size_t kMaxSubKeysPerKey = 4096;

}  // namespace Hive
