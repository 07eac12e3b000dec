// The 8- and 16-bit PCRE2 libraries behind one set of names, with owning handles for their objects.
#pragma once

#include <pcre2.h>

#include <cstdint>
#include <memory>

namespace SystemReport::Filters {

template <typename Unit>
struct Pcre2Api;

// 8-bit text is held as char; the library reads it as unsigned bytes, which char may always be read as.
template <>
struct Pcre2Api<char> {
    using Code = pcre2_code_8;
    using CompileContext = pcre2_compile_context_8;
    using MatchContext = pcre2_match_context_8;
    using MatchData = pcre2_match_data_8;
    using JitStack = pcre2_jit_stack_8;
    using Sptr = PCRE2_SPTR8;
    using Uchar = PCRE2_UCHAR8;
    static Sptr Units(const char* text) { return reinterpret_cast<Sptr>(text); }
    static constexpr auto compile = &pcre2_compile_8;
    static constexpr auto codeFree = &pcre2_code_free_8;
    static constexpr auto jitCompile = &pcre2_jit_compile_8;
    static constexpr auto patternInfo = &pcre2_pattern_info_8;
    static constexpr auto compileContextCreate = &pcre2_compile_context_create_8;
    static constexpr auto compileContextFree = &pcre2_compile_context_free_8;
    static constexpr auto setNewline = &pcre2_set_newline_8;
    static constexpr auto matchContextCreate = &pcre2_match_context_create_8;
    static constexpr auto matchContextFree = &pcre2_match_context_free_8;
    static constexpr auto setMatchLimit = &pcre2_set_match_limit_8;
    static constexpr auto matchDataCreate = &pcre2_match_data_create_from_pattern_8;
    static constexpr auto matchDataFree = &pcre2_match_data_free_8;
    static constexpr auto ovector = &pcre2_get_ovector_pointer_8;
    static constexpr auto match = &pcre2_match_8;
    static constexpr auto jitStackCreate = &pcre2_jit_stack_create_8;
    static constexpr auto jitStackFree = &pcre2_jit_stack_free_8;
    static constexpr auto jitStackAssign = &pcre2_jit_stack_assign_8;
    static constexpr auto errorMessage = &pcre2_get_error_message_8;
};

template <>
struct Pcre2Api<std::uint16_t> {
    using Code = pcre2_code_16;
    using CompileContext = pcre2_compile_context_16;
    using MatchContext = pcre2_match_context_16;
    using MatchData = pcre2_match_data_16;
    using JitStack = pcre2_jit_stack_16;
    using Sptr = PCRE2_SPTR16;
    using Uchar = PCRE2_UCHAR16;
    static Sptr Units(const std::uint16_t* text) { return text; }
    static constexpr auto compile = &pcre2_compile_16;
    static constexpr auto codeFree = &pcre2_code_free_16;
    static constexpr auto jitCompile = &pcre2_jit_compile_16;
    static constexpr auto patternInfo = &pcre2_pattern_info_16;
    static constexpr auto compileContextCreate = &pcre2_compile_context_create_16;
    static constexpr auto compileContextFree = &pcre2_compile_context_free_16;
    static constexpr auto setNewline = &pcre2_set_newline_16;
    static constexpr auto matchContextCreate = &pcre2_match_context_create_16;
    static constexpr auto matchContextFree = &pcre2_match_context_free_16;
    static constexpr auto setMatchLimit = &pcre2_set_match_limit_16;
    static constexpr auto matchDataCreate = &pcre2_match_data_create_from_pattern_16;
    static constexpr auto matchDataFree = &pcre2_match_data_free_16;
    static constexpr auto ovector = &pcre2_get_ovector_pointer_16;
    static constexpr auto match = &pcre2_match_16;
    static constexpr auto jitStackCreate = &pcre2_jit_stack_create_16;
    static constexpr auto jitStackFree = &pcre2_jit_stack_free_16;
    static constexpr auto jitStackAssign = &pcre2_jit_stack_assign_16;
    static constexpr auto errorMessage = &pcre2_get_error_message_16;
};

// Owning handles: each object is released by the library's own routine.
template <typename Object, auto Free>
struct Pcre2Deleter {
    void operator()(Object* object) const noexcept { Free(object); }
};

template <typename Unit>
struct Pcre2Handles {
    using Api = Pcre2Api<Unit>;
    using Code = std::unique_ptr<typename Api::Code, Pcre2Deleter<typename Api::Code, Api::codeFree>>;
    using CompileContext =
        std::unique_ptr<typename Api::CompileContext, Pcre2Deleter<typename Api::CompileContext, Api::compileContextFree>>;
    using MatchContext =
        std::unique_ptr<typename Api::MatchContext, Pcre2Deleter<typename Api::MatchContext, Api::matchContextFree>>;
    using MatchData = std::unique_ptr<typename Api::MatchData, Pcre2Deleter<typename Api::MatchData, Api::matchDataFree>>;
    using JitStack = std::unique_ptr<typename Api::JitStack, Pcre2Deleter<typename Api::JitStack, Api::jitStackFree>>;
};

}  // namespace SystemReport::Filters
