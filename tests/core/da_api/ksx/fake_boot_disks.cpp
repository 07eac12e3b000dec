// The fakes of the boot configuration report's tests.
#include "tests/core/da_api/ksx/fake_boot_disks.h"

#include <algorithm>

#include "core/da_api/da_properties.h"

namespace KsxTest {
namespace {

bool SameName(std::string_view a, std::string_view b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](char x, char y) { return std::tolower(static_cast<unsigned char>(x)) == std::tolower(static_cast<unsigned char>(y)); });
}

Common::Error Failure(const wchar_t* text) { return Common::Error::Make(Common::Codes::kOpenFile, text); }

class FakeDirectory final : public Disk::VolumeDirectory {
public:
    explicit FakeDirectory(std::shared_ptr<const FakeFolder> folder) : folder_(std::move(folder)) {}

    Common::Error List(std::vector<Disk::VolumeEntry>& entries) override {
        entries.clear();
        if (folder_->unreadable) return Failure(L"unreadable folder");
        for (const auto& [name, folder] : folder_->folders) entries.push_back({name, true, 0});
        for (const auto& [name, bytes] : folder_->files) entries.push_back({name, false, bytes.size()});
        return {};
    }
    Common::Error OpenDirectory(std::string_view name, std::unique_ptr<Disk::VolumeDirectory>& directory) override {
        for (const auto& [own, folder] : folder_->folders) {
            if (!SameName(own, name)) continue;
            // The sub-folder lives as long as the root that holds it.
            directory = OpenFolder(std::shared_ptr<const FakeFolder>(folder_, &folder));
            return {};
        }
        return Failure(L"no such folder");
    }
    Common::Error ReadFile(std::string_view name, std::uint64_t limit, std::string& bytes, std::uint64_t& size) override {
        if (folder_->unreadable) return Failure(L"unreadable folder");
        if (folder_->readFailure != 0)
            return Common::Error::Make(Common::Codes::kOpenFile, L"read failed",
                                       Common::Error::AddWindowsError(folder_->readFailure));
        for (const auto& [own, content] : folder_->files) {
            if (!SameName(own, name)) continue;
            size = content.size();
            bytes = content.substr(0, limit);
            return {};
        }
        return Failure(L"no such file");
    }

private:
    std::shared_ptr<const FakeFolder> folder_;
};

class FakeVolume final : public Disk::MountedVolume {
public:
    explicit FakeVolume(std::shared_ptr<const FakeFolder> root) : root_(std::move(root)) {}
    std::unique_ptr<Disk::VolumeDirectory> Root() override { return OpenFolder(root_); }
    std::string Way() const override { return "test volume"; }

private:
    std::shared_ptr<const FakeFolder> root_;
};

// Objects are numbered across all disks from 1; the walk (property 25) crosses from disk to disk.
class FakeDaApi final : public DaApi::Interface {
public:
    explicit FakeDaApi(std::vector<FakeBootDisk> disks) : disks_(std::move(disks)) {
        for (std::size_t d = 0; d < disks_.size(); ++d)
            for (std::size_t p = 0; p < disks_[d].partitions.size(); ++p) objects_.push_back({d, p});
    }

    DaApi::Value DaGetProperty(DaApi::PropertyId id) override {
        namespace Prop = DaApi::Prop;
        if (current_ == 0) return 0;
        auto [d, p] = objects_[current_ - 1];
        const FakeBootDisk& disk = disks_[d];
        const FakePartition& partition = disk.partitions[p];
        switch (id) {
            case Prop::kObjectHandle: return current_;
            case Prop::kDiskHandle: return 0x100 * (d + 1);
            case Prop::kHasBiosNumber: return disk.biosNumber != 0;
            case Prop::kBiosNumber: return disk.biosNumber;
            case Prop::kPartitionNumber: return partition.number;
            case Prop::kSkip: return partition.skip;
            case Prop::kVolumeHandle: return partition.mountable ? current_ : 0;
            default: return 0;
        }
    }
    DaApi::Value DaGetProperty1(DaApi::PropertyId, DaApi::Value) override { return 0; }
    DaApi::Value DaGetProperty2(DaApi::PropertyId, DaApi::Value) override { return 0; }
    void DaSetProperty(DaApi::PropertyId id, DaApi::Value value) override {
        if (id == DaApi::Prop::kNextObject) current_ = current_ < objects_.size() ? current_ + 1 : 0;
        if (id == DaApi::Prop::kObjectHandle || id == DaApi::Prop::kVolumeHandle) current_ = value;
    }
    DaApi::Value GetFsProperty(DaApi::PropertyId) override { return 0; }
    Common::Error DaGetComputerError() override { return {}; }
    Common::Error ReadSectors(std::uint64_t, std::uint32_t, std::vector<std::uint8_t>&) override {
        return Failure(L"no sectors");
    }
    void Stop() override {}
    Common::Error MountVolume(DaApi::Value handle, std::unique_ptr<Disk::MountedVolume>& volume) override {
        auto [d, p] = objects_.at(handle - 1);
        const FakePartition& partition = disks_[d].partitions[p];
        if (!partition.root) return Failure(L"cannot mount");
        volume = std::make_unique<FakeVolume>(partition.root);
        return {};
    }

private:
    std::vector<FakeBootDisk> disks_;
    std::vector<std::pair<std::size_t, std::size_t>> objects_;
    DaApi::Value current_ = 0;
};

}  // namespace

FakeFolder& FakeFolder::Folder(const std::string& path) {
    FakeFolder* folder = this;
    std::size_t start = 0;
    while (start <= path.size()) {
        std::size_t end = std::min(path.find('/', start), path.size());
        std::string name = path.substr(start, end - start);
        auto found = std::find_if(folder->folders.begin(), folder->folders.end(), [&](auto& f) { return f.first == name; });
        folder = found != folder->folders.end() ? &found->second : &folder->folders.emplace_back(name, FakeFolder{}).second;
        start = end + 1;
    }
    return *folder;
}

FakeFolder& FakeFolder::File(const std::string& name, std::string bytes) {
    files.emplace_back(name, std::move(bytes));
    return *this;
}

std::unique_ptr<Disk::VolumeDirectory> OpenFolder(std::shared_ptr<const FakeFolder> folder) {
    return std::make_unique<FakeDirectory>(std::move(folder));
}

void InstallDisks(std::vector<FakeBootDisk> disks) { DaApi::Install(std::make_unique<FakeDaApi>(std::move(disks))); }

}  // namespace KsxTest
