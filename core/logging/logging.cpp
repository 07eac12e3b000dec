// The logging library: channel table, line layout, outputs and rotation, all under one lock.
#include "core/logging/logging.h"

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <sstream>
#include <system_error>
#include <vector>

#include "core/logging/logging_platform.h"

namespace fs = std::filesystem;

struct Logging_ChannelConfig {
    enum class Kind { File, Console } kind = Kind::File;
    std::uint64_t maxFileSize = 0;
    std::uint32_t filesKept = 0;
    bool enabled = true;
};

struct Logging_Instance {
    int unused = 0;
};

namespace {

struct FileOutput {
    fs::path path;
    std::uint64_t maxFileSize = 0x100000;
    std::uint32_t filesKept = 10;
    std::ofstream stream;
    std::uint64_t size = 0;
};

struct Channel {
    std::optional<FileOutput> file;
    bool fileEnabled = true;
    bool console = false;
    bool debugger = false;
    int minimumLevel = 0;
    std::vector<std::string> linked;  // channels that also receive this channel's lines
};

struct State {
    std::mutex lock;
    Logging_ErrorFormatter errorFormatter = nullptr;
    Logging_FieldFormatter fieldFormatter = nullptr;
    std::optional<fs::path> folder;
    std::unique_ptr<Logging_Instance> instance;
    std::string defaultChannel;
    std::map<std::string, Channel> channels;
};

fs::path PathFromUtf8(const std::string& text) {
    return fs::path(std::u8string(reinterpret_cast<const char8_t*>(text.data()), text.size()));
}

std::string PathToUtf8(const fs::path& path) {
    std::u8string text = path.u8string();
    return std::string(reinterpret_cast<const char*>(text.data()), text.size());
}

State& TheState() {
    static State state;
    return state;
}

std::string DefaultField(const char* field, std::uint64_t value) {
    (void)field;
    return std::to_string(value);
}

std::string FieldText(const State& state, const char* field, std::uint64_t value) {
    return state.fieldFormatter ? state.fieldFormatter(field, value) : DefaultField(field, value);
}

std::string Timestamp() {
    auto now = std::chrono::system_clock::now();
    std::time_t seconds = std::chrono::system_clock::to_time_t(now);
    auto millis = std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() % 1000;
    std::tm t = Logging::Platform::LocalTime(seconds);
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, "%04d-%02d-%02d %02d:%02d:%02d.%03d", t.tm_year + 1900, t.tm_mon + 1,
                  t.tm_mday, t.tm_hour, t.tm_min, t.tm_sec, static_cast<int>(millis));
    return buffer;
}

std::string BaseName(const char* file) {
    std::string_view path(file ? file : "");
    size_t slash = path.find_last_of("/\\");
    return std::string(slash == std::string_view::npos ? path : path.substr(slash + 1));
}

// Rotation keeps `filesKept` files: name.log (newest), name.1.log, ..., name.<filesKept-1>.log (oldest).
fs::path RotatedPath(const fs::path& current, std::uint32_t index) {
    fs::path rotated = current;
    rotated.replace_extension(std::to_string(index) + current.extension().string());
    return rotated;
}

void Rotate(FileOutput& out) {
    out.stream.close();
    std::error_code ec;
    if (out.filesKept <= 1) {
        fs::remove(out.path, ec);
    } else {
        fs::remove(RotatedPath(out.path, out.filesKept - 1), ec);
        for (std::uint32_t i = out.filesKept - 1; i > 1; --i) fs::rename(RotatedPath(out.path, i - 1), RotatedPath(out.path, i), ec);
        fs::rename(out.path, RotatedPath(out.path, 1), ec);
    }
    out.stream.open(out.path, std::ios::binary | std::ios::app);
    out.size = 0;
}

void WriteToFile(FileOutput& out, const std::string& line) {
    if (!out.stream.is_open()) {
        out.stream.open(out.path, std::ios::binary | std::ios::app);
        std::error_code ec;
        auto size = fs::file_size(out.path, ec);
        out.size = ec ? 0 : size;
    }
    if (out.maxFileSize != 0 && out.size != 0 && out.size + line.size() > out.maxFileSize) Rotate(out);
    out.stream.write(line.data(), static_cast<std::streamsize>(line.size()));
    out.stream.flush();
    out.size += line.size();
}

void Emit(State& state, const std::string& name, int level, const std::string& line, int depth) {
    auto it = state.channels.find(name);
    if (it == state.channels.end() || depth > 8) return;
    Channel& channel = it->second;
    if (level >= channel.minimumLevel) {
        if (channel.file && channel.fileEnabled) WriteToFile(*channel.file, line);
        if (channel.console) {
            std::cout << line;
            std::cout.flush();
        }
        if (channel.debugger) Logging::Platform::WriteToDebugger(line);
    }
    for (const std::string& linked : channel.linked) Emit(state, linked, level, line, depth + 1);
}

Channel& ChannelNamed(State& state, const std::string& name) {
    Channel& channel = state.channels[name];
    if (name == "debugger") channel.debugger = true;
    return channel;
}

std::string Trim(std::string text) {
    size_t begin = text.find_first_not_of(" \t\r\n");
    size_t end = text.find_last_not_of(" \t\r\n");
    return begin == std::string::npos ? std::string() : text.substr(begin, end - begin + 1);
}

std::optional<int> ParseLevel(const std::string& value) {
    static const char* const words[] = {"debug", "information", "warning", "error", "critical error"};
    for (int i = 0; i < 5; ++i) {
        if (value == words[i]) return i + 1;
    }
    try {
        size_t used = 0;
        int number = std::stoi(value, &used);
        if (used == value.size()) return number;
    } catch (const std::exception&) {
    }
    return std::nullopt;
}

}  // namespace

void Logging_SetErrorFormatter(Logging_ErrorFormatter formatter) {
    State& state = TheState();
    std::lock_guard guard(state.lock);
    state.errorFormatter = formatter;
}

void Logging_SetFieldFormatter(Logging_FieldFormatter formatter) {
    State& state = TheState();
    std::lock_guard guard(state.lock);
    state.fieldFormatter = formatter;
}

Logging_Handle Logging_InitializeEx(const Logging_Configuration* configuration, unsigned flags) {
    (void)flags;
    if (!configuration || configuration->logFolder.empty()) return nullptr;
    fs::path folder = PathFromUtf8(configuration->logFolder);
    std::error_code ec;
    fs::create_directories(folder, ec);
    // Probe that files can be made there, so that a caller can fall back to another folder now rather
    // than lose every line later.
    fs::path probe = folder / ".write-test";
    {
        std::ofstream test(probe, std::ios::binary);
        if (!test) return nullptr;
    }
    fs::remove(probe, ec);
    State& state = TheState();
    std::lock_guard guard(state.lock);
    if (state.instance) return nullptr;
    state.folder = folder;
    state.instance = std::make_unique<Logging_Instance>();
    return state.instance.get();
}

void Logging_Deinitialize(Logging_Handle handle) {
    State& state = TheState();
    std::lock_guard guard(state.lock);
    if (!handle || handle != state.instance.get()) return;
    state.channels.clear();
    state.defaultChannel.clear();
    state.folder.reset();
    state.instance.reset();
}

Logging_ChannelConfig* Logging_CreateLogScopeConfig(std::uint64_t maxFileSize, std::uint32_t filesKept,
                                                    std::uint32_t enabled, std::uint32_t flags) {
    (void)flags;
    auto* config = new Logging_ChannelConfig;
    config->kind = Logging_ChannelConfig::Kind::File;
    config->maxFileSize = maxFileSize;
    config->filesKept = filesKept;
    config->enabled = enabled != 0;
    return config;
}

Logging_ChannelConfig* Logging_CreateConsoleConfig() {
    auto* config = new Logging_ChannelConfig;
    config->kind = Logging_ChannelConfig::Kind::Console;
    return config;
}

void Logging_FreeChannelConfig(Logging_ChannelConfig* config) { delete config; }

bool Logging_TuneChannel(const char* name, const Logging_ChannelConfig* config) {
    if (!name || !config) return false;
    State& state = TheState();
    std::lock_guard guard(state.lock);
    Channel& channel = ChannelNamed(state, name);
    if (config->kind == Logging_ChannelConfig::Kind::Console) {
        channel.console = config->enabled;
        return true;
    }
    if (!state.folder) return false;
    FileOutput out;
    out.path = *state.folder / (std::string(name) + ".log");
    out.maxFileSize = config->maxFileSize;
    out.filesKept = config->filesKept == 0 ? 1 : config->filesKept;
    channel.file = std::move(out);
    channel.fileEnabled = config->enabled;
    return true;
}

bool Logging_SetDefaultChannel(const char* name) {
    if (!name) return false;
    State& state = TheState();
    std::lock_guard guard(state.lock);
    ChannelNamed(state, name);
    state.defaultChannel = name;
    return true;
}

bool Logging_LinkChannel(const char* name, const char* target) {
    if (!name || !target || std::string(name) == target) return false;
    State& state = TheState();
    std::lock_guard guard(state.lock);
    ChannelNamed(state, name);
    ChannelNamed(state, target).linked.push_back(name);
    return true;
}

bool Logging_ReadConfiguration(const char* path) {
    if (!path) return false;
    std::ifstream in(PathFromUtf8(path), std::ios::binary);
    if (!in) return false;
    State& state = TheState();
    std::lock_guard guard(state.lock);
    if (state.defaultChannel.empty()) return false;
    Channel& channel = ChannelNamed(state, state.defaultChannel);
    std::string line;
    while (std::getline(in, line)) {
        line = Trim(line);
        if (line.empty() || line[0] == '#' || line[0] == ';') continue;
        size_t equals = line.find('=');
        if (equals == std::string::npos) continue;
        std::string key = Trim(line.substr(0, equals));
        std::string value = Trim(line.substr(equals + 1));
        if (key == "level") {
            if (auto level = ParseLevel(value)) channel.minimumLevel = *level;
        } else if (key == "outputs") {
            bool file = false, debugger = false, console = false;
            std::stringstream items(value);
            std::string item;
            while (std::getline(items, item, ',')) {
                item = Trim(item);
                file |= item == "file";
                debugger |= item == "debugger";
                console |= item == "cout";
            }
            channel.fileEnabled = file;
            // The debugger and console outputs are channels linked to this one; switch them at the source.
            for (auto& [linkedName, linked] : state.channels) {
                if (linkedName == "debugger") linked.debugger = debugger;
                if (linkedName == "cout") linked.console = console;
            }
        }
    }
    return true;
}

void Logging_Write(const char* channel, int level, const char* file, const char* func, unsigned line,
                   const std::string& text) {
    State& state = TheState();
    std::lock_guard guard(state.lock);
    if (!state.instance) return;
    std::string name = channel ? channel : state.defaultChannel;
    std::string out = Timestamp() + " [" + FieldText(state, "trace level", static_cast<std::uint64_t>(level)) + "] " +
                      BaseName(file) + ":" + FieldText(state, "$line", line) + " (" + (func ? func : "") + "): " +
                      text + "\n";
    Emit(state, name, level, out, 0);
}

void Logging_WriteError(const char* channel, int level, const char* file, const char* func, unsigned line,
                        const std::string& text, const void* error) {
    std::string formatted;
    {
        State& state = TheState();
        std::lock_guard guard(state.lock);
        if (state.errorFormatter && error) formatted = state.errorFormatter(error);
    }
    Logging_Write(channel, level, file, func, line, text + formatted);
}

std::string Logging_GetChannelFile(const char* name) {
    State& state = TheState();
    std::lock_guard guard(state.lock);
    auto it = state.channels.find(name ? name : state.defaultChannel);
    if (it == state.channels.end() || !it->second.file) return {};
    return PathToUtf8(it->second.file->path);
}
