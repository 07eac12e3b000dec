// A small program for the network tests: runs one detector as the report does (start, wait for the
// search time, take the list, destroy) and prints what it found, the log, and how long it all took.
//   location_probe upnp <seconds> <urn device type> [<devices examined>] | bonjour <seconds> | composite <seconds>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <string>

#include "core/common/log.h"
#include "core/common/strings.h"
#include "core/logging/logging.h"
#include "home/location_detector/impl/bonjour_detector.h"
#include "home/location_detector/impl/composite_detector.h"
#include "home/location_detector/impl/upnp_detector.h"

namespace {

using namespace LocationDetector;

std::shared_ptr<Detector> MakeDetector(const std::string& kind, int seconds, int urnDeviceType, std::size_t maxDevices) {
    SearchTiming timing{std::chrono::seconds(seconds), UpnpDetector::kDownloadTime};
    if (kind == "upnp") return std::make_shared<UpnpDetector>(true, seconds, urnDeviceType, nullptr, maxDevices);
    if (kind == "bonjour") return std::make_shared<BonjourDetector>(timing, true);
    if (kind == "composite") return MakeLocationDetector(seconds);
    return nullptr;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        std::cerr << "usage: location_probe upnp <seconds> <urn device type> [<devices examined>] | bonjour <seconds> | "
                     "composite <seconds>\n";
        return 2;
    }
    std::string kind = argv[1];
    int seconds = std::stoi(argv[2]);
    int urnDeviceType = argc > 3 ? std::stoi(argv[3]) : -1;
    std::size_t maxDevices = argc > 4 ? std::stoul(argv[4]) : UpnpDetector::kMaxDevices;

    std::filesystem::path logFolder = std::filesystem::temp_directory_path() / Common::WideToUtf8(L"location_probe");
    Logging_SetErrorFormatter(&Common::Log::FormatErrorForLog);
    Logging_SetFieldFormatter(&Common::Log::FormatFieldForLog);
    Logging_Configuration configuration{Common::PathToUtf8(logFolder)};
    Logging_Handle logging = Logging_InitializeEx(&configuration, 0);
    Logging_ChannelConfig* console = Logging_CreateConsoleConfig();
    Logging_TuneChannel(Common::Log::kChannel, console);
    Logging_FreeChannelConfig(console);
    Logging_SetDefaultChannel(Common::Log::kChannel);

    auto start = std::chrono::steady_clock::now();
    Locations locations;
    {
        std::shared_ptr<Detector> detector = MakeDetector(kind, seconds, urnDeviceType, maxDevices);
        if (!detector) {
            std::cerr << "unknown detector " << kind << "\n";
            return 2;
        }
        detector->Start();
        locations = detector->GetLocations();
        detector->Stop();
    }
    auto elapsed = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start);

    for (const LocationPtr& location : locations) {
        std::cout << "LOCATION\t" << Common::WideToUtf8(location->name) << '\t' << Common::WideToUtf8(location->path) << '\t'
                  << Common::WideToUtf8(location->hostname) << '\t' << location->raw.size() << '\n';
        std::cout << "RAW-BEGIN\n" << location->raw << "\nRAW-END\n";
    }
    std::cout << "ELAPSED_MS " << elapsed.count() << std::endl;
    Logging_Deinitialize(logging);
    return 0;
}
