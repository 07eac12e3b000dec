// The BCD part of the boot configuration report.
#include "core/da_api/ksx_bcd.h"

#include <fstream>
#include <initializer_list>
#include <memory>
#include <string_view>

#include "core/common/log.h"
#include "core/common/strings.h"
#include "core/common/uuid.h"
#include "core/da_api/ksx_content.h"
#include "core/hive/hive.h"
#include "core/hive/hive_dump.h"
#include "core/hive/running_store.h"

namespace DaApi::Ksx {
namespace {

struct StorePlace {
    BootLayout layout;
    std::initializer_list<std::string_view> folders;
};

const StorePlace kStorePlaces[] = {
    {BootLayout::kGpt, {"EFI", "Microsoft", "Boot"}},
    {BootLayout::kMbr, {"Boot"}},
};

bool HasFile(Disk::VolumeDirectory& directory, std::string_view name) {
    std::vector<Disk::VolumeEntry> entries;
    return directory.List(entries).Succeeded() && FindEntry(entries, name, false).has_value();
}

// The boot folder of `place`, when the volume has it and it holds a file "BCD".
std::unique_ptr<Disk::VolumeDirectory> StoreFolder(Disk::VolumeDirectory& root, const StorePlace& place) {
    std::unique_ptr<Disk::VolumeDirectory> folder;
    Disk::VolumeDirectory* current = &root;
    for (std::string_view name : place.folders) {
        std::unique_ptr<Disk::VolumeDirectory> next;
        if (current->OpenDirectory(name, next).Failed() || !next) return nullptr;
        folder = std::move(next);
        current = folder.get();
    }
    return HasFile(*folder, "BCD") ? std::move(folder) : nullptr;
}

Common::Error WriteCopy(const std::filesystem::path& file, const std::string& bytes) {
    std::ofstream stream(file, std::ios::binary | std::ios::trunc);
    stream.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    stream.close();
    if (!stream) {
        return Common::Error::Make(Common::Codes::kCreateFile, L"The copy of the boot configuration store cannot be written.")
            .WithField({"path", Common::ErrorField::Kind::Text, Common::PathToUtf8(file)});
    }
    return {};
}

const char* LayoutText(BootLayout layout) {
    return layout == BootLayout::kGpt ? "BCD opened for GPT boottype" : "BCD opened for MBR boottype";
}

}  // namespace

StoreCopy::StoreCopy(StoreCopy&& other) noexcept
    : layout(other.layout), file(std::move(other.file)), readError(std::move(other.readError)) {
    other.file.clear();
}

StoreCopy& StoreCopy::operator=(StoreCopy&& other) noexcept {
    if (this != &other) {
        Remove();
        layout = other.layout;
        file = std::move(other.file);
        other.file.clear();
        readError = std::move(other.readError);
    }
    return *this;
}

StoreCopy::~StoreCopy() { Remove(); }

void StoreCopy::Remove() noexcept {
    std::error_code ignored;
    if (!file.empty()) std::filesystem::remove(file, ignored);
    file.clear();
}

StoreCopy CopyStore(Disk::VolumeDirectory& root, const std::filesystem::path& scratch) {
    StoreCopy copy;
    for (const StorePlace& place : kStorePlaces) {
        std::unique_ptr<Disk::VolumeDirectory> folder = StoreFolder(root, place);
        if (!folder) continue;
        copy.layout = place.layout;
        std::string bytes;
        std::uint64_t size = 0;
        copy.readError = folder->ReadFile("BCD", kMaxStoreBytes, bytes, size);
        if (copy.readError.Succeeded() && size > bytes.size()) {
            copy.readError = Common::Error::Make(Common::Codes::kOpenFile,
                                                 L"The boot configuration store is larger than a store can be.");
        }
        if (copy.readError.Succeeded()) {
            std::filesystem::path file = scratch / Common::NewScratchName();
            copy.readError = WriteCopy(file, bytes);
            if (copy.readError.Succeeded()) copy.file = std::move(file);
        }
        break;
    }
    return copy;
}

void WriteBcdPart(const StoreCopy& copy, std::string& out) {
    if (!copy.layout) return;
    std::unique_ptr<Hive::HiveStore> store;
    Common::Error error = copy.readError.Failed() ? copy.readError : Hive::OpenHiveFile(copy.file, store);
    if (error.Failed() && Hive::IsHeldBySystem(error)) {
        Common::Log::Info("Boot configuration report: the system holds the store open; its loaded copy is read instead.");
        error = Hive::OpenRunningStore(store);
    }
    std::unique_ptr<Hive::HiveKey> root = store ? store->Root() : nullptr;
    if (error.Failed() || !root) {
        Common::Log::WriteError(Common::Log::kWarning,
                                "Boot configuration report: the boot configuration store opens neither way: ", error);
        return;
    }
    out += LayoutText(*copy.layout);
    out += "\r\nBCD dump:\r\n";
    Hive::DumpKeyTree(*root, out);
    out += "\r\n";
}

}  // namespace DaApi::Ksx
