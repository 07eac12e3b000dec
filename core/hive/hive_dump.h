// The text dump of a registry key tree, as the boot configuration report writes a BCD store.
#pragma once

#include <string>

#include "core/hive/hive.h"

namespace Hive {

// Appends `root` and everything below it to `out`, depth-first: each key's name on a line indented by two
// blanks per level, then one line per value ("name: text", two blanks deeper), then its sub-keys. Lines end
// in CR LF. Value texts by type: binary as "%02X " per byte, strings as themselves (the strings of a
// multi-string separated by one blank), 32- and 64-bit numbers in decimal, other types as nothing. Text is
// 8-bit: characters above 255 become '?'. Deep or looping trees are cut (with a log line) at a bounded
// depth and key count; a key whose values or sub-keys cannot be read is logged and dumped without them.
void DumpKeyTree(HiveKey& root, std::string& out);

// The dump's text of one value.
std::string ValueText(const HiveValue& value);

}  // namespace Hive
