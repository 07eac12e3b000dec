// BCD bytes through a scratch hive file.
#include "core/boot_check/bcd_hive_file.h"

#include <filesystem>
#include <fstream>

#include "core/common/uuid.h"

namespace BootCheck {
namespace {

// Owns the scratch file for as long as the hive reader holds it open.
class ScratchStore final : public Hive::HiveStore {
public:
    ScratchStore(std::filesystem::path file, std::unique_ptr<Hive::HiveStore> store)
        : file_(std::move(file)), store_(std::move(store)) {}
    ~ScratchStore() override {
        store_.reset();
        std::error_code ignored;
        std::filesystem::remove(file_, ignored);
    }
    std::unique_ptr<Hive::HiveKey> Root() override { return store_->Root(); }

private:
    std::filesystem::path file_;
    std::unique_ptr<Hive::HiveStore> store_;
};

}  // namespace

Common::Error OpenHiveBytes(const std::string& bytes, std::unique_ptr<Hive::HiveStore>& store) {
    std::error_code error;
    std::filesystem::path file =
        std::filesystem::temp_directory_path(error) / (L"SystemReport-" + Common::NewScratchName() + L".bcd");
    if (error) return Common::Error::AddErrno(error.value());
    {
        std::ofstream out(file, std::ios::binary);
        out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
        if (!out.flush()) {
            out.close();
            std::filesystem::remove(file, error);
            return Common::Error::Make(Common::Codes::kCreateFile, L"The scratch copy of a BCD store cannot be written.");
        }
    }
    std::unique_ptr<Hive::HiveStore> opened;
    if (Common::Error failed = Hive::OpenHiveFile(file, opened); failed.Failed()) {
        std::filesystem::remove(file, error);
        return failed;
    }
    store = std::make_unique<ScratchStore>(std::move(file), std::move(opened));
    return {};
}

}  // namespace BootCheck
