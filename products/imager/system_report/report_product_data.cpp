// The product data item.
#include "products/imager/system_report/report_product_data.h"

#include "core/common/localized.h"
#include "core/common/log.h"
#include "core/common/product.h"
#include "core/common/strings.h"
#include "products/imager/system_report/online_backup_details.h"
#include "core/file/zip/entry_source.h"
#include "products/imager/system_report/text_encoding.h"

namespace fs = std::filesystem;

namespace SystemReport {
namespace {

// The details are a help to the reader only: whatever goes wrong in writing them, the folder is still taken.
void DescribeOnlineBackup(const fs::path& makerFolder) {
    const Common::Error error = Common::CatchErrors([&] { return WriteOnlineBackupDetails(makerFolder); });
    if (error.Failed()) {
        Common::Log::WriteError(Common::Log::kDebug, "No online-backup details for '" + Common::PathToUtf8(makerFolder) + "': ",
                                error);
    }
}

// The machine-wide folder holds 8-bit and UTF-16 text alike; the 8-bit rules match only 8-bit text, so
// each file goes through the filter for its encoding. UTF-16BE is turned into UTF-16LE for the filter and
// back, unit by unit, so nothing but what the rules replace changes.
class TextByEncodingFilter final : public CopyFileFilter {
public:
    TextByEncodingFilter(std::shared_ptr<CopyFileFilter> eightBit, std::shared_ptr<CopyFileFilter> sixteenBit)
        : eightBit_(std::move(eightBit)), sixteenBit_(std::move(sixteenBit)) {}

    Common::Error Filter(const std::string& text, std::string& filtered) const override {
        switch (DetectTextEncoding(text)) {
            case TextEncoding::EightBit:
                return eightBit_->Filter(text, filtered);
            case TextEncoding::Utf16Le:
                return sixteenBit_->Filter(text, filtered);
            case TextEncoding::Utf16Be:
                break;
        }
        std::string littleEndian = text;
        SwapUtf16ByteOrder(littleEndian);
        Common::Error error = sixteenBit_->Filter(littleEndian, filtered);
        SwapUtf16ByteOrder(filtered);
        return error;
    }

    std::unique_ptr<Stream> StartStream() const override { return std::make_unique<ByEncodingStream>(*this); }

private:
    // The first 4 KiB tell the encoding. 8-bit text then streams through the 8-bit filter, so a log of any
    // size is redacted in bounded memory; UTF-16 text is gathered for the 16-bit filter, which needs it
    // whole, up to the limit that whole texts have.
    class ByEncodingStream final : public Stream {
    public:
        explicit ByEncodingStream(const TextByEncodingFilter& owner) : owner_(owner) {}

        Common::Error Push(std::string_view piece, bool last, std::string& filtered) override {
            if (eightBit_) return eightBit_->Push(piece, last, filtered);
            held_.append(piece);
            if (!decided_) {
                if (held_.size() < kDetectionBytes && !last) return {};
                decided_ = true;
                if (DetectTextEncoding(held_) == TextEncoding::EightBit) eightBit_ = owner_.eightBit_->StartStream();
                if (eightBit_) {
                    std::string held;
                    held.swap(held_);
                    return eightBit_->Push(held, last, filtered);
                }
            }
            if (held_.size() > Zip::Transform::kWholeTextLimit) {
                return Common::Error::Make(Common::Codes::kUnexpected, L"The text is too large to be filtered whole.");
            }
            return last ? owner_.Filter(held_, filtered) : Common::Error();
        }

    private:
        static constexpr std::size_t kDetectionBytes = 4096;
        const TextByEncodingFilter& owner_;
        std::unique_ptr<Stream> eightBit_;
        std::string held_;
        bool decided_ = false;
    };

    std::shared_ptr<CopyFileFilter> eightBit_;
    std::shared_ptr<CopyFileFilter> sixteenBit_;
};

}  // namespace

ReportProductData::ReportProductData(const ReportContext& context)
    : folders_(context.folders),
      textFilter_(context.wideTextFilter ? std::make_shared<TextByEncodingFilter>(context.textFilter, context.wideTextFilter)
                                         : context.textFilter) {}

Common::Error ReportProductData::Create(const fs::path&, FileEntries& entries) {
    const std::wstring maker = Common::Localized(Common::Product::kMakerName);
    const std::wstring separator(1, fs::path::preferred_separator);
    const std::wstring top = L"Application Data" + separator;

    if (std::optional<fs::path> common = folders_->CommonAppData()) {
        const fs::path source = *common / maker / L"";
        DescribeOnlineBackup(source);
        entries.push_back({source, top + L"All Users" + separator + maker + separator,
                           Common::Localized(L"Common Application Data"), textFilter_, true, true});
    }
    if (std::optional<fs::path> user = folders_->UserAppData()) {
        const fs::path source = *user / maker / L"";
        DescribeOnlineBackup(source);
        // The per-user folder is taken as it is: only the machine-wide one passes through the filter.
        entries.push_back({source, top + folders_->UserName().value_or(L"User") + separator + maker + separator,
                           Common::Localized(L"User's Application Data"), nullptr, true, true});
    }
    return {};
}

}  // namespace SystemReport
