// One initialisation of the secure-socket library per process.
#pragma once

namespace SystemReport {

void InitializeSecureSockets();

}  // namespace SystemReport
