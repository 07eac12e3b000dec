// The online-backup details: a description of the certificate files of every "OnlineBackup" folder
// of the product, written into that folder as "online_backup.txt" so that the folder's copy carries it.
#pragma once

#include <filesystem>
#include <string>

#include "core/common/error.h"

namespace SystemReport {

// For each direct sub-folder of `makerFolder` (in listing order) that holds a folder "OnlineBackup",
// writes that folder's "online_backup.txt" as a new file (never through a link). Links are not followed,
// the maker folder itself included. Fails with "No OnlineBackup folder is available" when there is no
// such folder; a file that cannot be written is logged as "Failed to write file '{0}'." and the other
// folders are still described.
Common::Error WriteOnlineBackupDetails(const std::filesystem::path& makerFolder);

// The text of "online_backup.txt" for one folder, UTF-8 with CR LF: the product version line and an
// empty line, then for each file ending in ".crt" (any case; in listing order):
//   Filename: 'name.crt'
//   Size: 1234 bytes
//   Creation time: 2024-05-01 12:34:56 UTC
//   -----
//   the certificate as OpenSSL prints it, or the reason it cannot be printed
//   (an empty line)
// The creation time is the file's birth time where the file system records one; on Linux file systems
// without it, the time of the last change to the contents.
std::string OnlineBackupDetailsText(const std::filesystem::path& onlineBackupFolder);

}  // namespace SystemReport
