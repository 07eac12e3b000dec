// Error values of the UEFI facility.
#include "core/grub_parser/uefi_bootvars/uefi_errors.h"

#include "core/common/strings.h"

namespace Uefi {

Common::Error GetUefiErrorFromNtStatus(std::uint32_t status, const std::wstring& entryName,
                                       std::source_location where) {
    Common::Error nt = Common::Error::AddNTStatus(status, {}, where);
    switch (status) {
        case NtStatus::kNotImplemented: return MakeNotImplementedError(nt, where);
        case NtStatus::kVariableNotFound: return MakeNotFoundError(entryName, nt, where);
        case NtStatus::k0454: return Common::Error::Make(Codes::kStatus0454, L"", nt, where);
        default: return MakeBootEntryError(entryName, nt, where);
    }
}

Common::Error MakeNotFoundError(const std::wstring& entryName, Common::Error cause, std::source_location where) {
    return Common::Error::Make(Codes::kNotFound,
                               Common::FormatPlaceholders(L"Boot Entry '{0}' cannot be found.", {entryName}),
                               std::move(cause), where);
}

Common::Error MakeNotImplementedError(Common::Error cause, std::source_location where) {
    return Common::Error::Make(Codes::kNotImplemented, L"Not implemented.", std::move(cause), where);
}

Common::Error MakeBootEntryError(const std::wstring& entryName, Common::Error cause, std::source_location where) {
    return Common::Error::Make(Codes::kBootEntry,
                               Common::FormatPlaceholders(L"An error of Boot Entry '{0}'.", {entryName}),
                               std::move(cause), where);
}

Common::Error MakeIncorrectBootPathError(std::source_location where) {
    return Common::Error::Make(Codes::kIncorrectBootPath, L"Incorrect boot path.", {}, where);
}

Common::Error MakeMalformedError(std::source_location where) {
    return Common::Error::Make(Codes::kMalformed, L"", {}, where);
}

Common::Error MakeNotLoadedError(std::source_location where) {
    return Common::Error::Make(Codes::kNotLoaded, L"", {}, where);
}

}  // namespace Uefi
