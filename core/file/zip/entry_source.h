// Where the bytes of one archive entry come from: memory, a file named by path, or a file the caller has
// opened itself (the folder walk opens without following links and hands over what it opened).
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string>

#include "core/common/error.h"

namespace Zip {

class EntrySource {
public:
    virtual ~EntrySource() = default;
    // The size expected, which a file that grows or a special file may not keep to.
    virtual std::uint64_t SizeHint() const = 0;
    // `got` is 0 at the end.
    virtual Common::Error Read(std::span<char> buffer, std::size_t& got) = 0;
    // Back to the first byte, for an entry that has to be written a second time.
    virtual Common::Error Rewind() = 0;
};

// Turns an entry's whole bytes into what is stored (a redaction filter). A failure drops the entry.
using Transform = std::function<Common::Error(const std::string& bytes, std::string& stored)>;

}  // namespace Zip
