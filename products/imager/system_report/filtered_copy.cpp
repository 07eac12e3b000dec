// Filtered copies: the text is held whole in memory, as the filters work on whole texts.
#include "products/imager/system_report/filtered_copy.h"

#include <cerrno>
#include <fstream>
#include <source_location>
#include <system_error>

#include "core/common/strings.h"

namespace SystemReport {
namespace {

constexpr std::size_t kReadChunk = 64 * 1024;

Common::Error FileFailure(const wchar_t* message, int code, const std::filesystem::path& path,
                          std::source_location where = std::source_location::current()) {
    return Common::Error::Make(Common::Codes::kOpenFile, message, Common::Error::AddErrno(code, {}, where), where)
        .WithField({"path", Common::ErrorField::Kind::Text, Common::PathToUtf8(path), 0});
}

// May throw when memory runs out.
Common::Error ReadAll(const std::filesystem::path& path, std::string& content) {
    errno = 0;
    std::ifstream in(path, std::ios::binary);
    if (!in) return FileFailure(L"Error occurred while opening the file.", errno, path);
    std::error_code ec;
    const std::uintmax_t size = std::filesystem::file_size(path, ec);
    if (!ec && size < content.max_size()) content.reserve(static_cast<std::size_t>(size));
    // istream::read turns a failing read of the file buffer (EISDIR, EIO), which libstdc++ reports by
    // exception, into the bad bit; reading through stream-buffer iterators would let it escape instead.
    while (in) {
        const std::size_t used = content.size();
        content.resize(used + kReadChunk);
        errno = 0;
        in.read(content.data() + used, static_cast<std::streamsize>(kReadChunk));
        content.resize(used + static_cast<std::size_t>(in.gcount()));
    }
    if (in.bad()) return FileFailure(L"Error occurred while reading the file.", errno, path);
    return {};
}

class FilterStream final : public Zip::TransformStream {
public:
    explicit FilterStream(std::unique_ptr<CopyFileFilter::Stream> stream) : stream_(std::move(stream)) {}
    Common::Error Push(std::string_view bytes, bool last, std::string& stored) override {
        return stream_->Push(bytes, last, stored);
    }

private:
    std::unique_ptr<CopyFileFilter::Stream> stream_;
};

}  // namespace

Zip::Transform FilterTransform(const CopyFileFilter& filter) {
    if (!filter.StartStream()) {
        return [&filter](const std::string& text, std::string& filtered) { return filter.Filter(text, filtered); };
    }
    return Zip::Transform::Stream([&filter] { return std::make_unique<FilterStream>(filter.StartStream()); });
}

Common::Error ReadWholeFile(const std::filesystem::path& path, std::string& content) {
    content.clear();
    Common::Error error = Common::CatchErrors([&] { return ReadAll(path, content); });
    if (error.Failed()) std::string().swap(content);
    return error;
}

Common::Error FilteredCopyFile(const std::filesystem::path& source, const CopyFileFilter& filter, std::string& filtered) {
    std::string text;
    if (Common::Error error = ReadWholeFile(source, text); error.Failed()) return error;
    if (Common::Error error = filter.Filter(text, filtered); error.Failed()) {
        return Common::Error::Make(Common::Codes::kOpenFile, L"The file could not be filtered.", error);
    }
    return {};
}

}  // namespace SystemReport
