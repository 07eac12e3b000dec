// Common::Error: chain ownership, construction and the text form.
#include "core/common/error.h"

#include <atomic>
#include <cstdio>
#include <new>

#include "core/common/source_position.h"
#include "core/common/strings.h"

namespace Common {

struct Error::Entry {
    std::atomic<std::uint32_t> refs{1};
    std::uint32_t code = 0;
    Entry* cause = nullptr;
    void (*release)(Entry*) = nullptr;

    std::wstring message;
    std::string file;
    std::string func;
    std::uint32_t line = 0;
    std::uint32_t site = 0;
    std::uint32_t module = 0;
    std::vector<ErrorField> extra;
};

namespace {

// FNV-1a: a stable 32-bit number for a source file, and for a place in it.
constexpr std::uint32_t Fnv1a(std::string_view text, std::uint32_t hash = 2166136261u) {
    for (unsigned char c : text) {
        hash ^= c;
        hash *= 16777619u;
    }
    return hash;
}

void DeleteEntry(Error::Entry* entry) { delete entry; }

std::string Hex(std::uint64_t value) {
    char buffer[24];
    std::snprintf(buffer, sizeof buffer, "0x%llx", static_cast<unsigned long long>(value));
    return buffer;
}

std::string FieldText(const ErrorField& field) {
    switch (field.kind) {
    case ErrorField::Kind::Decimal: return std::to_string(field.number);
    case ErrorField::Kind::Hex: return Hex(field.number);
    case ErrorField::Kind::Text: break;
    }
    return field.text;
}

}  // namespace

Error::Error(const Error& other) noexcept : entry_(other.entry_) {
    if (entry_) entry_->refs.fetch_add(1, std::memory_order_relaxed);
}

Error::Error(Error&& other) noexcept : entry_(other.entry_) { other.entry_ = nullptr; }

Error& Error::operator=(const Error& other) noexcept {
    if (this != &other) {
        Error copy(other);
        std::swap(entry_, copy.entry_);
    }
    return *this;
}

Error& Error::operator=(Error&& other) noexcept {
    if (this != &other) {
        Release(entry_);
        entry_ = other.entry_;
        other.entry_ = nullptr;
    }
    return *this;
}

Error::~Error() { Release(entry_); }

// A loop rather than recursion: a long chain must not exhaust the stack.
void Error::Release(Entry* entry) noexcept {
    while (entry && entry->refs.fetch_sub(1, std::memory_order_acq_rel) == 1) {
        Entry* cause = entry->cause;
        entry->cause = nullptr;
        entry->release(entry);
        entry = cause;
    }
}

Error Error::Make(std::uint32_t code, std::wstring message, Error cause, std::source_location where) {
    auto* entry = new Entry;
    entry->code = code;
    entry->cause = cause.entry_;
    cause.entry_ = nullptr;
    entry->release = &DeleteEntry;
    entry->message = std::move(message);
    entry->file = where.file_name();
    entry->func = ShortFunctionName(where.function_name());
    entry->line = where.line();
    entry->module = Fnv1a(entry->file);
    entry->site = Fnv1a(std::to_string(entry->line), entry->module);
    return Error(entry);
}

Error Error::WithField(ErrorField field) const {
    if (!entry_) return *this;
    auto* entry = new Entry;
    entry->code = entry_->code;
    entry->cause = entry_->cause;
    if (entry->cause) entry->cause->refs.fetch_add(1, std::memory_order_relaxed);
    entry->release = &DeleteEntry;
    entry->message = entry_->message;
    entry->file = entry_->file;
    entry->func = entry_->func;
    entry->line = entry_->line;
    entry->site = entry_->site;
    entry->module = entry_->module;
    entry->extra = entry_->extra;
    entry->extra.push_back(std::move(field));
    return Error(entry);
}

std::uint32_t Error::Code() const noexcept { return entry_ ? entry_->code : 0; }

std::wstring Error::Message() const { return entry_ ? entry_->message : std::wstring(); }

Error Error::Cause() const noexcept {
    if (!entry_ || !entry_->cause) return {};
    entry_->cause->refs.fetch_add(1, std::memory_order_relaxed);
    return Error(entry_->cause);
}

std::uint32_t Error::UseCount() const noexcept {
    return entry_ ? entry_->refs.load(std::memory_order_relaxed) : 0;
}

std::vector<ErrorField> Error::Fields() const { return entry_ ? EntryFields(*entry_) : std::vector<ErrorField>{}; }

std::vector<ErrorField> Error::EntryFields(const Entry& entry) {
    std::vector<ErrorField> fields;
    fields.push_back({"code", ErrorField::Kind::Hex, {}, entry.code});
    fields.push_back({"$module", ErrorField::Kind::Text, std::string(kModuleIdentity), 0});
    fields.push_back({"$file", ErrorField::Kind::Text, entry.file, 0});
    fields.push_back({"$func", ErrorField::Kind::Text, entry.func, 0});
    fields.push_back({"$line", ErrorField::Kind::Decimal, {}, entry.line});
    fields.insert(fields.end(), entry.extra.begin(), entry.extra.end());
    return fields;
}

std::string Error::ToString() const {
    if (Succeeded()) return "Success";
    std::string text;
    for (const Entry* entry = entry_; entry; entry = entry->cause) {
        if (entry != entry_) text += " <- ";
        text += WideToUtf8(entry->message);
        text += " [";
        bool first = true;
        for (const ErrorField& field : EntryFields(*entry)) {
            if (!first) text += ", ";
            first = false;
            text += field.name + "=" + FieldText(field);
        }
        text += "]";
    }
    return text;
}

ErrorException::ErrorException(Error error) : error_(std::move(error)), text_(error_.ToString()) {}

void ThrowIfFailed(const Error& error) {
    if (error.Failed()) throw ErrorException(error);
}

Error ErrorFromCurrentException(std::source_location where) {
    try {
        throw;
    } catch (const ErrorException& e) {
        return e.error();
    } catch (const std::bad_alloc&) {
        return Error::Make(Codes::kUnexpected, L"Out of memory.", {}, where);
    } catch (const std::exception& e) {
        return Error::Make(Codes::kUnexpected, L"An unexpected failure: " + Utf8ToWide(e.what()), {}, where);
    } catch (...) {
        return Error::Make(Codes::kUnexpected, L"An unexpected failure.", {}, where);
    }
}

}  // namespace Common
