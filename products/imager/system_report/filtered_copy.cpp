// Filtered copies: the text is held whole in memory, as the filters work on whole texts.
#include "products/imager/system_report/filtered_copy.h"

#include <cerrno>
#include <fstream>
#include <iterator>

#include "core/common/strings.h"

namespace SystemReport {

Common::Error ReadWholeFile(const std::filesystem::path& path, std::string& content) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        return Common::Error::Make(Common::Codes::kOpenFile, L"Error occurred while opening the file.",
                                   Common::Error::AddErrno(errno))
            .WithField({"path", Common::ErrorField::Kind::Text, Common::PathToUtf8(path), 0});
    }
    content.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    if (in.bad()) {
        return Common::Error::Make(Common::Codes::kOpenFile, L"Error occurred while reading the file.");
    }
    return {};
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
