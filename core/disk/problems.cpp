// Fixed texts of the problem identifiers.
#include "core/disk/problems.h"

#include <array>

namespace Disk {

std::string_view ProblemText(std::uint64_t id) {
    static constexpr std::array<std::string_view, 21> kTexts = {
        "",
        "The disks cannot be listed.",
        "The disk cannot be opened for reading.",
        "The disk cannot be read.",
        "The disk is empty.",
        "No valid GPT header was found.",
        "The primary GPT header or partition array is damaged.",
        "The backup GPT header or partition array is damaged.",
        "A GPT partition entry is invalid.",
        "The partition extends past the end of the disk.",
        "The partition overlaps another partition or a partition table.",
        "The extended partition chain loops.",
        "The extended partition chain points outside the extended partition.",
        "The partition table has no signature.",
        "The extended partition chain is too long.",
        "A partition table cannot be read.",
        "The file system structure is damaged.",
        "The file system is larger than its partition.",
        "The file system cannot be read.",
        "The sector size is not supported.",
        "A GPT lies behind a legacy MBR, which takes precedence.",
    };
    return id < kTexts.size() ? kTexts[id] : std::string_view();
}

}  // namespace Disk
