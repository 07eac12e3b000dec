// Packs a generated product-data folder with the report's own path (the report manager saving a folder
// entry through the 8-bit filter, as the machine-wide product folder is stored) and with Info-ZIP
// "zip -r -6" on the same folder, each in a child process of its own, and prints wall time, processor
// time, archive size and peak memory (maximum resident set) of both and their ratios.
//   pack_bench <work folder> [megabytes, default 400]
//   pack_bench <work folder> --big-log <gigabytes>   one filtered log of that size, packed by the report alone
// The folder is made once below the work folder and reused.
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <random>
#include <string>

#include "products/imager/system_report/filters/text_data_filter.h"
#include "products/imager/system_report/report.h"
#include "products/imager/system_report/report_manager.h"
#include "tests/products/imager/system_report/text_filter_corpus.h"

namespace fs = std::filesystem;

namespace {

constexpr std::size_t kMiB = 1u << 20;

// About one line in eight of the logs carries private data.
constexpr std::uint32_t kSecretEvery = 8;

void WriteText(const fs::path& path, const std::string& text) {
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary).write(text.data(), static_cast<std::streamsize>(text.size()));
}

// Logs split into component folders, 2,000 small files and one 50 MB file of random bytes.
void MakeProductFolder(const fs::path& folder, std::size_t megabytes) {
    if (fs::exists(folder / ".complete")) return;
    fs::remove_all(folder);
    std::mt19937 random(11);
    std::string noise(50 * kMiB, '\0');
    for (char& c : noise) c = static_cast<char>(random());
    WriteText(folder / "Dumps" / "crash.dmp", noise);
    std::size_t written = noise.size();
    for (int i = 0; i < 2000; ++i) {
        const std::string text = FilterCorpus::Log(1024 + random() % 16384, 100 + i, kSecretEvery);
        WriteText(folder / ("Settings" + std::to_string(i % 20)) / ("item" + std::to_string(i) + ".xml"), text);
        written += text.size();
    }
    const std::size_t total = megabytes * kMiB;
    for (int i = 0; written < total; ++i) {
        const std::string text = FilterCorpus::Log(std::min<std::size_t>(37 * kMiB, total - written), 1 + i, kSecretEvery);
        WriteText(folder / ("Logs" + std::to_string(i % 10)) / ("service" + std::to_string(i) + ".log"), text);
        written += text.size();
    }
    WriteText(folder / ".complete", "");
}

// A 2 GB-class log, written piece by piece so that making it needs little memory.
void MakeBigLog(const fs::path& folder, double gigabytes) {
    if (fs::exists(folder / ".complete")) return;
    fs::remove_all(folder);
    fs::create_directories(folder);
    std::ofstream out(folder / "service.log", std::ios::binary);
    const auto total = static_cast<std::uint64_t>(gigabytes * 1024 * kMiB);
    for (std::uint64_t written = 0, piece = 0; written < total; ++piece) {
        const std::string text = FilterCorpus::Log(16 * kMiB, static_cast<std::uint32_t>(piece % 8) + 1, kSecretEvery);
        out.write(text.data(), static_cast<std::streamsize>(text.size()));
        written += text.size();
    }
    out.close();
    WriteText(folder / ".complete", "");
}

// The machine-wide product folder as the product-data item names it: recursive, through the 8-bit filter.
class ProductFolderItem final : public SystemReport::Report {
public:
    explicit ProductFolderItem(fs::path folder) : folder_(std::move(folder)) {}
    Common::Error Create(const fs::path&, SystemReport::FileEntries& entries) override {
        SystemReport::FileEntry entry;
        entry.source = folder_;
        entry.archiveName = L"Application Data/Product";
        entry.title = L"Product data";
        entry.filter = std::make_shared<SystemReport::TextDataFilter>();
        entry.folder = true;
        entry.recursive = true;
        entries.push_back(entry);
        return {};
    }

private:
    fs::path folder_;
};

int PackWithReport(const fs::path& folder, const fs::path& archive, const fs::path& scratch) {
    SystemReport::ReportManager manager;
    manager.Add(std::make_shared<ProductFolderItem>(folder));
    if (manager.Create(scratch).Failed()) return 1;
    return manager.SaveAs(archive).Failed() ? 1 : 0;
}

struct Run {
    double wall = 0, processor = 0, peakMiB = 0, archiveMiB = 0;
    bool ok = false;
};

template <typename Child>
Run Measure(const fs::path& archive, Child&& child) {
    fs::remove(archive);
    std::fflush(nullptr);
    auto start = std::chrono::steady_clock::now();
    pid_t pid = fork();
    if (pid == 0) _exit(child());
    int status = 0;
    rusage usage{};
    wait4(pid, &status, 0, &usage);
    Run run;
    run.wall = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    run.processor = usage.ru_utime.tv_sec + usage.ru_utime.tv_usec / 1e6 + usage.ru_stime.tv_sec + usage.ru_stime.tv_usec / 1e6;
    run.peakMiB = usage.ru_maxrss / 1024.0;  // kilobytes on Linux
    run.ok = WIFEXITED(status) && WEXITSTATUS(status) == 0 && fs::exists(archive);
    run.archiveMiB = run.ok ? static_cast<double>(fs::file_size(archive)) / kMiB : 0;
    return run;
}

void Print(const char* what, const Run& run) {
    std::printf("%-22s %8.2f s wall %8.2f s cpu (%4.0f%%) %9.2f MiB archive %7.1f MiB peak%s\n", what, run.wall,
                run.processor, 100 * run.processor / run.wall, run.archiveMiB, run.peakMiB, run.ok ? "" : "  FAILED");
}

double FolderMiB(const fs::path& folder) {
    std::uintmax_t bytes = 0;
    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
        if (entry.is_regular_file()) bytes += entry.file_size();
    }
    return static_cast<double>(bytes) / kMiB;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: pack_bench <work folder> [megabytes | --big-log gigabytes]\n");
        return 2;
    }
    const fs::path work = fs::absolute(argv[1]);
    fs::create_directories(work / "scratch");
    const bool big = argc > 3 && std::string(argv[2]) == "--big-log";
    const fs::path folder = work / (big ? "big-log" : "product-data");
    if (big) {
        MakeBigLog(folder, std::atof(argv[3]));
    } else {
        MakeProductFolder(folder, argc > 2 ? std::strtoul(argv[2], nullptr, 10) : 400);
    }
    std::printf("folder %s: %.1f MiB\n", folder.c_str(), FolderMiB(folder));

    const fs::path reportArchive = work / "report.zip";
    const Run report = Measure(reportArchive, [&] { return PackWithReport(folder, reportArchive, work / "scratch"); });
    Print("report (filtered)", report);
    if (big) return report.ok ? 0 : 1;

    const fs::path zipArchive = work / "info-zip.zip";
    const Run zip = Measure(zipArchive, [&] {
        if (chdir(folder.c_str()) != 0) return 1;
        execlp("zip", "zip", "-r", "-6", "-q", zipArchive.c_str(), ".", "-x", ".complete", static_cast<char*>(nullptr));
        return 127;
    });
    Print("zip -r -6", zip);
    std::printf("report vs zip: %.2fx faster, archive %+.2f%%, peak memory %.1f MiB vs %.1f MiB\n",
                zip.wall / report.wall, 100 * (report.archiveMiB / zip.archiveMiB - 1), report.peakMiB, zip.peakMiB);
    return report.ok && zip.ok ? 0 : 1;
}
