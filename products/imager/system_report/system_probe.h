// Facts about the running system that decide which report items a run has.
#pragma once

#include <memory>

namespace SystemReport {

class SystemProbe {
public:
    virtual ~SystemProbe() = default;
    // A 32-bit process on 64-bit Windows. Where the system has no IsWow64Process it is 32-bit.
    virtual bool IsWow64Process() = 0;
    // The key HKLM\SYSTEM\CurrentControlSet\Control\MiniNT exists: a pre-installation environment.
    virtual bool IsPreinstallationEnvironment() = 0;
};

// Off Windows both answers are false.
std::shared_ptr<SystemProbe> MakeSystemProbe();

}  // namespace SystemReport
