// libFuzzer target: a Boot#### value through the load-option decoder, its queries and the report's
// entry text.
#include <cstddef>
#include <cstdint>
#include <string>

#include "core/grub_parser/uefi_bootvars/bootvars_report.h"
#include "core/grub_parser/uefi_bootvars/load_options_impl.h"

namespace {

class BytesEntry final : public Uefi::BootEntry {
public:
    explicit BytesEntry(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}
    std::uint16_t GetNumber() const override { return 1; }
    Common::Error GetLoadOptions(std::shared_ptr<Uefi::LoadOptions>& options) override {
        auto decoded = std::make_shared<Uefi::LoadOptionsImpl>();
        Uefi::ByteReader reader(bytes_);
        if (Common::Error error = decoded->Fill(reader); error.Failed()) return error;
        options = decoded;
        return {};
    }
    Common::Error GetRawData(std::vector<std::uint8_t>& data) override {
        data.assign(bytes_.begin(), bytes_.end());
        return {};
    }

private:
    std::span<const std::uint8_t> bytes_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::span<const std::uint8_t> bytes(data, size);
    Uefi::LoadOptionsImpl options;
    Uefi::ByteReader reader(bytes);
    options.Fill(reader);
    // A failed Fill leaves a partial object; its queries must still be safe.
    std::u16string text;
    std::uint32_t number = 0;
    std::uint64_t extent = 0;
    Uefi::Guid guid;
    options.GetDescription(text);
    options.GetPath(text);
    options.GetPartitionNumber(number);
    options.GetPartitionStart(extent);
    options.GetPartitionSize(extent);
    options.GetDiskType(number);
    options.GetPartitionGUID(guid);
    options.GetNtSignature(number);

    BytesEntry entry(bytes);
    std::string block;
    Uefi::BuildBootEntryText(entry, block);
    return 0;
}
