// The product's scheduler library, loaded from beside the executable on first use.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>

#include "core/common/error.h"

namespace SystemReport {

// The library's report buffer: data pointer, a field the caller only zeroes, length in bytes.
struct ScheduleReportBuffer {
    char* data;
    std::uint32_t reserved;
    std::uint32_t length;
};

class SchedulerLibrary {
public:
    virtual ~SchedulerLibrary() = default;
    virtual void CreateLocalReport(ScheduleReportBuffer* buffer) = 0;
    virtual void FreeMemory(void* data) = 0;
};

// File name of the library: "schedmgr.dll" on Windows, "libschedmgr.so" elsewhere.
const wchar_t* SchedulerLibraryFileName();

// Loads the library from `folder` and finds its two routines; fails when either is missing.
Common::Error LoadSchedulerLibrary(const std::filesystem::path& folder, std::unique_ptr<SchedulerLibrary>& library);

}  // namespace SystemReport
