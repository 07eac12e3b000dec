// Where the bytes of one archive entry come from: memory, a file named by path, or a file the caller has
// opened itself (the folder walk opens without following links and hands over what it opened); and what
// may turn them into the bytes stored (a redaction filter).
#pragma once

#include <concepts>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "core/common/error.h"

namespace Zip {

class EntrySource {
public:
    virtual ~EntrySource() = default;
    // The size expected, which a file that grows or a special file may not keep to.
    virtual std::uint64_t SizeHint() const = 0;
    // `got` is 0 at the end.
    virtual Common::Error Read(std::span<char> buffer, std::size_t& got) = 0;
    // Back to the first byte, for an entry that has to be written a second time.
    virtual Common::Error Rewind() = 0;
};

// `path` opened for reading, following links; a failure carries the field "source" (see IsSourceFailure).
Common::Error OpenFileSource(const std::filesystem::path& path, std::unique_ptr<EntrySource>& source);

// A transform fed one entry's bytes in order, piece by piece, on one thread at a time.
class TransformStream {
public:
    virtual ~TransformStream() = default;
    // Appends to `stored` what is settled of the bytes given so far; `last` marks the entry's end, after
    // which everything is. A failure drops the entry.
    virtual Common::Error Push(std::string_view bytes, bool last, std::string& stored) = 0;
};

// An entry's bytes held in memory.
class MemorySource final : public EntrySource {
public:
    explicit MemorySource(std::string data) : data_(std::move(data)) {}
    std::uint64_t SizeHint() const override { return data_.size(); }
    Common::Error Read(std::span<char> buffer, std::size_t& got) override {
        got = data_.copy(buffer.data(), buffer.size(), position_);
        position_ += got;
        return {};
    }
    Common::Error Rewind() override {
        position_ = 0;
        return {};
    }

private:
    std::string data_;
    std::size_t position_ = 0;
};

// Turns an entry's bytes into what is stored. Either a function of the whole text, which then has to be
// held in memory (up to kWholeTextLimit; a larger entry is dropped), or a maker of a TransformStream,
// which sees the text in pieces and holds only what it needs.
class Transform {
public:
    using Whole = std::function<Common::Error(const std::string& bytes, std::string& stored)>;
    using Streaming = std::function<std::unique_ptr<TransformStream>()>;

    static constexpr std::size_t kWholeTextLimit = 32u << 20;

    Transform() = default;
    template <typename Function>
        requires std::invocable<Function&, const std::string&, std::string&>
    Transform(Function whole) : whole_(std::move(whole)) {}
    static Transform Stream(Streaming start) {
        Transform transform;
        transform.start_ = std::move(start);
        return transform;
    }

    explicit operator bool() const { return whole_ || start_; }
    // A fresh stream for one entry. May throw when memory runs out.
    std::unique_ptr<TransformStream> Start() const;

private:
    Whole whole_;
    Streaming start_;
};

}  // namespace Zip
