// The logging library: named channels with file, debugger and console outputs, links between channels,
// size-limited rotation and an external configuration file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

struct Logging_Instance;
using Logging_Handle = Logging_Instance*;

// Turns an error object of the caller into text; the library treats it as opaque.
using Logging_ErrorFormatter = std::string (*)(const void* error);
// Turns a numeric field of a line ("trace level", "$line") into text.
using Logging_FieldFormatter = std::string (*)(const char* field, std::uint64_t value);

struct Logging_Configuration {
    std::string logFolder;  // UTF-8; created when missing
};

struct Logging_ChannelConfig;

void Logging_SetErrorFormatter(Logging_ErrorFormatter formatter);
void Logging_SetFieldFormatter(Logging_FieldFormatter formatter);

// Null when the log folder cannot be created or written.
Logging_Handle Logging_InitializeEx(const Logging_Configuration* configuration, unsigned flags);
void Logging_Deinitialize(Logging_Handle handle);

// File output of a channel ("log scope"): one file of at most `maxFileSize` bytes, rotated, `filesKept`
// files in all; `enabled` switches the output on; `flags` is reserved and must be 0.
Logging_ChannelConfig* Logging_CreateLogScopeConfig(std::uint64_t maxFileSize, std::uint32_t filesKept,
                                                    std::uint32_t enabled, std::uint32_t flags);
// Standard-output output of a channel.
Logging_ChannelConfig* Logging_CreateConsoleConfig();
void Logging_FreeChannelConfig(Logging_ChannelConfig* config);
bool Logging_TuneChannel(const char* channel, const Logging_ChannelConfig* config);

// Lines written to a null channel go to the default channel.
bool Logging_SetDefaultChannel(const char* channel);
// Every line written to `target` is also written to `channel`.
bool Logging_LinkChannel(const char* channel, const char* target);

// Reads "key = value" lines of the default channel's overrides: "level" (a severity word or number: lines
// below it are dropped) and "outputs" (a comma-separated subset of "file", "debugger", "cout"; the
// outputs not named are switched off). A missing file is no error (returns false, changes nothing).
bool Logging_ReadConfiguration(const char* path);

void Logging_Write(const char* channel, int level, const char* file, const char* func, unsigned line,
                   const std::string& text);
// Writes `text` followed by the error, as the installed error formatter gives it.
void Logging_WriteError(const char* channel, int level, const char* file, const char* func, unsigned line,
                        const std::string& text, const void* error);

// Path of the current file of a channel's file output (empty when it has none); for diagnostics and tests.
std::string Logging_GetChannelFile(const char* channel);
