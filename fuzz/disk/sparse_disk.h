// A disk described by a fuzzer's input: its size, then the sectors that are not zero.
//   u32 sector count (its top byte ignored), u8 sector-size shift (9 or 12), then records of u32 sector number + one sector.
// Sectors named by no record read as zeros; a short last record is dropped. Tests fill one with Put instead.
#pragma once

#include <cstdint>
#include <map>
#include <span>
#include <vector>

#include "core/disk/block_device.h"
#include "core/disk/disk_errors.h"

namespace Disk {

class SparseDisk final : public SectorReader {
public:
    explicit SparseDisk(std::span<const std::uint8_t> input) {
        if (input.size() < 5) return;
        // Up to 2^24 sectors: large enough for every structure the decoders follow, small enough that
        // zero-filled reads of whole FATs and bitmaps keep the fuzzer fast.
        count_ = (input[0] | input[1] << 8 | std::uint64_t{input[2]} << 16) & 0xFFFFFF;
        sectorSize_ = input[4] == 12 ? 4096 : 512;
        input = input.subspan(5);
        while (input.size() >= 4 + sectorSize_) {
            const std::uint64_t sector = input[0] | input[1] << 8 | input[2] << 16 | std::uint64_t{input[3]} << 24;
            sectors_[sector].assign(input.begin() + 4, input.begin() + 4 + sectorSize_);
            input = input.subspan(4 + sectorSize_);
        }
    }

    // `count` sectors of 512 zero bytes.
    explicit SparseDisk(std::uint64_t count) : count_(count) {}
    // `value` as `width` little-endian bytes at byte `offset` of the disk.
    void Put(std::uint64_t offset, std::uint64_t value, int width) {
        for (int i = 0; i < width; ++i, ++offset) {
            auto& sector = sectors_[offset / sectorSize_];
            sector.resize(sectorSize_);
            sector[offset % sectorSize_] = static_cast<std::uint8_t>(value >> (8 * i));
        }
    }

    std::uint32_t SectorSize() const override { return sectorSize_; }
    std::uint64_t SectorCount() const override { return count_; }
    Common::Error Read(std::uint64_t first, std::uint32_t count, std::vector<std::uint8_t>& data) override {
        if (!InsideDevice(first, count, count_)) return OutsideDevice(first, count, count_);
        // The decoders never ask for more than a few MiB at once; larger asks would only slow the fuzzer.
        if (std::uint64_t{count} * sectorSize_ > (64u << 20))
            return Common::Error::Make(Codes::kReadFailed, L"A read too large for the fuzzer.");
        data.assign(std::size_t{count} * sectorSize_, 0);
        for (auto it = sectors_.lower_bound(first); it != sectors_.end() && it->first < first + count; ++it)
            std::copy(it->second.begin(), it->second.end(), data.begin() + (it->first - first) * sectorSize_);
        return {};
    }

private:
    std::uint64_t count_ = 0;
    std::uint32_t sectorSize_ = 512;
    std::map<std::uint64_t, std::vector<std::uint8_t>> sectors_;
};

}  // namespace Disk
