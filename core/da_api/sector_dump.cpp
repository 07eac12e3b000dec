// The sector hex dump.
#include "core/da_api/sector_dump.h"

#include <algorithm>

#include "core/da_api/report_printf.h"

namespace DaApi {
namespace {

constexpr std::size_t kBytesPerLine = 16;

std::optional<std::uint8_t> UniformByte(std::span<const std::uint8_t> sector) {
    if (sector.empty()) return std::nullopt;
    std::uint8_t first = sector.front();
    if (std::all_of(sector.begin(), sector.end(), [first](std::uint8_t b) { return b == first; })) return first;
    return std::nullopt;
}

char Printable(std::uint8_t byte) { return byte < 32 ? '.' : static_cast<char>(byte); }

void AppendDataLines(std::string& out, std::span<const std::uint8_t> sector) {
    for (std::size_t offset = 0; offset < sector.size(); offset += kBytesPerLine) {
        std::span<const std::uint8_t> line = sector.subspan(offset, std::min(kBytesPerLine, sector.size() - offset));
        if (std::all_of(line.begin(), line.end(), [](std::uint8_t b) { return b == 0; })) {
            out += " -0";
            continue;
        }
        AppendPrintf(out, "\r\n    %03zX  ", offset);
        for (std::uint8_t byte : line) AppendPrintf(out, "%02X ", byte);
        out += ' ';
        for (std::uint8_t byte : line) out += Printable(byte);
    }
}

}  // namespace

std::optional<DiskGeometry> UsableGeometry(const DiskGeometry& geometry) {
    if (geometry.heads == 0 || geometry.sectorsPerTrack == 0) return std::nullopt;
    return geometry;
}

std::string ChsSuffix(std::uint64_t sector, const std::optional<DiskGeometry>& geometry) {
    if (!geometry || geometry->heads == 0 || geometry->sectorsPerTrack == 0) return {};
    std::uint64_t track = sector / geometry->sectorsPerTrack;
    return Printf(" (%llu %u %u)", static_cast<unsigned long long>(track / geometry->heads),
                  static_cast<unsigned>(track % geometry->heads),
                  static_cast<unsigned>(sector % geometry->sectorsPerTrack + 1));
}

std::string SectorName(std::uint64_t sector, const std::optional<DiskGeometry>& geometry) {
    return Printf("Sector %llu (0x%llX)", static_cast<unsigned long long>(sector),
                  static_cast<unsigned long long>(sector)) +
           ChsSuffix(sector, geometry);
}

void AppendSectorDump(std::string& out, std::span<const std::uint8_t> data, std::size_t sectorSize,
                      std::uint64_t firstSector, const std::optional<DiskGeometry>& geometry) {
    if (sectorSize == 0) return;
    std::size_t count = data.size() / sectorSize;

    // The open run of uniform sectors: its byte and its last sector.
    std::optional<std::uint8_t> runByte;
    std::uint64_t runFirst = 0;
    std::uint64_t runLast = 0;
    auto closeRun = [&] {
        if (runByte && runLast != runFirst) out += " - " + SectorName(runLast, geometry);
        runByte.reset();
    };

    for (std::size_t i = 0; i < count; ++i) {
        std::uint64_t number = firstSector + i;
        std::span<const std::uint8_t> sector = data.subspan(i * sectorSize, sectorSize);
        std::optional<std::uint8_t> uniform = UniformByte(sector);
        if (uniform && runByte == uniform) {
            runLast = number;
            continue;
        }
        closeRun();
        out += "\r\n  " + SectorName(number, geometry);
        if (uniform) {
            AppendPrintf(out, " - All %02X", *uniform);
            runByte = uniform;
            runFirst = runLast = number;
        } else {
            AppendDataLines(out, sector);
        }
    }
    closeRun();
}

}  // namespace DaApi
