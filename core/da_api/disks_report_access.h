// Reads and selection moves of the disk report. A property that the interface cannot deliver reads as 0
// or as an empty text, so every field of the report falls back to its "absent" form and the report goes on.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "core/da_api/da_api.h"

namespace DaApi::DisksReport {

Value Get(PropertyId id);
Value Get1(PropertyId id, Value parameter);
Value GetFs(PropertyId id);
std::string GetText8(PropertyId id);
// An 8-bit text read with a parameter (DaGetProperty1).
std::string GetText8(PropertyId id, Value parameter);
std::u16string GetText16(PropertyId id);
// `length` bytes at the pointer that the file-system property `id` holds; empty when absent.
std::vector<std::uint8_t> GetFsBytes(PropertyId id, std::size_t length);
// `length` bytes at the pointer that the property `id` holds; empty when absent.
std::vector<std::uint8_t> GetBytes(PropertyId id, std::size_t length);

// Writes a selection or context property; false (and a log line) when the interface refuses.
bool Set(PropertyId id, Value value);
// The same without the log line, for dropping a selection that may already be gone.
void Drop(PropertyId id);

// The current disk's logical sector size (property 380), which "unit 0" of a size string stands for.
Value SectorSize();

// The size string of `count` units of `unit` bytes, where unit 0 is the current disk's sector size.
std::string Size(Value count, Value unit);

// A 16-bit or wide text as the report's 8-bit text: characters above 255 become "?".
std::string Narrow(std::u16string_view text);
std::string Narrow(std::wstring_view text);

}  // namespace DaApi::DisksReport
