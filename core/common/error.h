// Common::Error: the one error value of the program, a handle to a reference-counted chain of entries.
#pragma once

#include <cstdint>
#include <exception>
#include <source_location>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace Common {

// Value of the "$module" field of every entry this program makes.
inline constexpr std::string_view kModuleIdentity = "system_report_vs_38530";

// A named field of an error entry beyond the fixed ones ("$file", "$func", "$line", "$module", "code").
struct ErrorField {
    enum class Kind { Text, Decimal, Hex };
    std::string name;
    Kind kind = Kind::Text;
    std::string text;
    std::uint64_t number = 0;
};

// A single pointer to the first entry of a chain. Empty, or a first entry with code 0, means success.
// Copies share the chain; counts are atomic so handles may be copied and released on any thread.
// The chain is never changed after it is made: every "add" returns a new handle.
class Error {
public:
    struct Entry;

    Error() noexcept {}
    Error(const Error& other) noexcept;
    Error(Error&& other) noexcept;
    Error& operator=(const Error& other) noexcept;
    Error& operator=(Error&& other) noexcept;
    ~Error();

    // Makes a one-entry error (with `cause` as the next entry). The site identifier is derived from the
    // source position, the module identifier from the source file, so both are stable for one build.
    static Error Make(std::uint32_t code, std::wstring message, Error cause = {},
                      std::source_location where = std::source_location::current());

    // Entries that carry a system code of the named kind, with the system's message text for that code
    // (empty where the system has none, e.g. a Windows code off Windows). `cause` becomes the next entry.
    static Error AddWindowsError(std::uint32_t code, Error cause = {},
                                 std::source_location where = std::source_location::current());
    static Error AddHResult(std::uint32_t code, Error cause = {},
                            std::source_location where = std::source_location::current());
    static Error AddNTStatus(std::uint32_t code, Error cause = {},
                             std::source_location where = std::source_location::current());
    // errno of the C library; the code recorded is the errno value itself.
    static Error AddErrno(int code, Error cause = {},
                          std::source_location where = std::source_location::current());

    // Returns a copy of this error whose first entry carries one more named field.
    Error WithField(ErrorField field) const;

    bool Failed() const noexcept { return Code() != 0; }
    bool Succeeded() const noexcept { return !Failed(); }
    std::uint32_t Code() const noexcept;
    std::wstring Message() const;
    Error Cause() const noexcept;
    // The fixed and extra fields of the first entry, as written in the text form.
    std::vector<ErrorField> Fields() const;
    // Number of references to the first entry; for tests of the sharing rules.
    std::uint32_t UseCount() const noexcept;

    // "Success" for an empty error or code 0; otherwise every entry of the chain, outermost first.
    std::string ToString() const;

private:
    explicit Error(Entry* entry) noexcept : entry_(entry) {}
    static void Release(Entry* entry) noexcept;
    static std::vector<ErrorField> EntryFields(const Entry& entry);

    Entry* entry_ = nullptr;
};

// A failure travelling out of a module by exception; turned back into an Error at the item boundary.
class ErrorException : public std::exception {
public:
    explicit ErrorException(Error error);
    const char* what() const noexcept override { return text_.c_str(); }
    const Error& error() const noexcept { return error_; }

private:
    Error error_;
    std::string text_;
};

// Throws `error` as an ErrorException when it failed.
void ThrowIfFailed(const Error& error);

// Runs `body` and turns any escaping exception into an Error, so that no exception crosses a report
// item's boundary. Unknown exceptions become code 0x4000b ("An unexpected failure.").
template <typename Body>
Error CatchErrors(Body&& body, std::source_location where = std::source_location::current());

Error ErrorFromCurrentException(std::source_location where);

template <typename Body>
Error CatchErrors(Body&& body, std::source_location where) {
    try {
        if constexpr (std::is_same_v<decltype(body()), Error>) {
            return body();
        } else {
            body();
            return {};
        }
    } catch (...) {
        return ErrorFromCurrentException(where);
    }
}

// Codes of the report driver's facility.
namespace Codes {
inline constexpr std::uint32_t kOpenFile = 0x40007;
inline constexpr std::uint32_t kCreateFile = 0x4000a;
inline constexpr std::uint32_t kUnexpected = 0x4000b;
inline constexpr std::uint32_t kCanceled = 0x4000f;
}  // namespace Codes

}  // namespace Common
