// Product folders derived from the folder service.
#include "core/common/folders.h"

#include "core/common/product.h"

namespace Common {

std::optional<std::filesystem::path> ProductDataFolder(FolderService& folders) {
    auto common = folders.CommonAppData();
    if (!common) return std::nullopt;
    return *common / Product::kMakerName / Product::kProductName;
}

}  // namespace Common
