// Human size strings of the disk report: three significant digits and a binary suffix, at most five
// characters ("512b", "1.5K", "931G", "2T").
#pragma once

#include <cstdint>
#include <string>

namespace DaApi {

// The size of `bytes` bytes.
std::string SizeString(std::uint64_t bytes);

// The size of `count` units of `unit` bytes; the product wraps at 64 bits, as the report has always done.
std::string SizeString(std::uint64_t count, std::uint64_t unit);

}  // namespace DaApi
