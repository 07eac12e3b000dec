// The parts of the folder walk that are the same on every system.
#include "products/imager/system_report/folder_walk.h"

namespace SystemReport {

Common::Error OpenFile::Read(std::span<char> buffer, std::size_t& got) {
    if (Common::Error error = ReadSome(buffer, got); error.Failed()) return error;
    position_ += got;
    if (got == 0 && !buffer.empty() && position_ < size_) {
        return Common::Error::Make(Common::Codes::kOpenFile,
                                   L"The file became shorter while it was read (" + std::to_wstring(position_) +
                                       L" of " + std::to_wstring(size_) + L" bytes).");
    }
    return {};
}

Common::Error OpenFile::Rewind() {
    if (Common::Error error = SeekToStart(); error.Failed()) return error;
    position_ = 0;
    return {};
}

Common::Error OpenFile::ReadAll(std::string& content) {
    if (size_ >= content.max_size()) {
        return Common::Error::Make(Common::Codes::kOpenFile, L"The file is too large to be read into memory.");
    }
    // One byte more than the size, so that a file that grew is seen to grow without a read past the end.
    content.resize(static_cast<std::size_t>(size_) + 1);
    std::size_t used = 0;
    for (;;) {
        if (used == content.size()) content.resize(content.size() + content.size() / 2 + 1);
        std::size_t got = 0;
        if (Common::Error error = Read(std::span<char>(content.data() + used, content.size() - used), got); error.Failed()) {
            return error;
        }
        if (got == 0) break;
        used += got;
    }
    content.resize(used);
    return {};
}

}  // namespace SystemReport
