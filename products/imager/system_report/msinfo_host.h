// What System Information needs to know about the system: the Windows version, the help service that the
// tool needs before Windows Vista, and the program folders.
#pragma once

#include <memory>
#include <optional>
#include <string>

namespace SystemReport {

class MsInfoHost {
public:
    virtual ~MsInfoHost() = default;
    // GetVersionExA's major version; none off Windows or when the query fails.
    virtual std::optional<unsigned long> WindowsMajorVersion() = 0;
    // The "helpsvc" service.
    virtual bool HelpServiceRunning() = 0;
    virtual bool StartHelpService() = 0;
    // Stops the service unless it is already stopped.
    virtual void StopHelpService() = 0;
    // "%ProgramW6432%" expanded: the 64-bit program folder as a 32-bit process sees it; empty when unset.
    virtual std::wstring ProgramW6432Folder() = 0;
    // CSIDL_PROGRAM_FILES; empty when unknown.
    virtual std::wstring ProgramFilesFolder() = 0;
};

std::unique_ptr<MsInfoHost> MakeMsInfoHost();

}  // namespace SystemReport
