// What a run costs, in units of two plain SQLite programs over the same amount of data.
//
//   vellum-bench [--json] [COUNT...]        counts of items, 1000 and 10000 if none is given
//
// All data is made before anything is measured and deleted after everything was, because deleting masses
// of pages slows the file system for minutes.
#include "BenchWorld.h"
#include "SqliteBaseline.h"

#include <Platform/Machine.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <nlohmann/json.hpp>
#include <vector>

namespace {

struct Case {
    const char* name;
    const char* unit;  // "copy" or "scan"
    double aim;        // in units
    double seconds = 0;
    double baseline = 0;
};

struct Size {
    int count;
    std::unique_ptr<CBenchWorld> world;
    std::unique_ptr<CSqliteBaseline> baseline;
    std::vector<Case> cases;
};

// Peak memory of the process so far, in megabytes; 0 where the system does not tell.
double PeakMegabytes() {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
        if (line.rfind("VmHWM:", 0) == 0) return std::stod(line.substr(6)) / 1024;
    return 0;
}

Size Prepare(int count, const std::string& directory) {
    Size size{count, std::make_unique<CBenchWorld>(count), nullptr, {}};
    const std::string own = directory + "/" + std::to_string(count);
    std::filesystem::create_directories(own);
    size.baseline = std::make_unique<CSqliteBaseline>(own);
    size.baseline->Prepare(count);
    return size;
}

void Measure(Size& size) {
    CBenchWorld& world = *size.world;
    double copy = 1e9, scan = 1e9;
    for (int i = 0; i < 3; ++i)
        copy = std::min(copy, size.baseline->Copy());
    for (int i = 0; i < 5; ++i)
        scan = std::min(scan, size.baseline->Scan());
    const auto add = [&](const char* name, const char* unit, double aim, double seconds) {
        size.cases.push_back({name, unit, aim, seconds, unit[0] == 'c' ? copy : scan});
    };
    add("first run", "copy", 2, world.Sync());
    world.Sync();
    add("nothing changed", "scan", 1, std::min({world.Sync(), world.Sync(), world.Sync()}));
    world.ChangeItems(true, 0, 100);
    world.ChangeItems(false, 50, 100);
    add("1% changed on each side", "scan", 2, world.Sync());
    world.ChangeItems(true, 0, 1);
    add("everything changed", "copy", 4, world.Sync());
    if (world.LeftCount() != static_cast<unsigned>(size.count) || world.RightCount() != world.LeftCount())
        throw std::runtime_error("the folders do not hold what they should");
}

void PrintText(const std::vector<Size>& sizes) {
    std::printf("%8s  %-24s %10s %10s %8s %6s\n", "items", "case", "seconds", "baseline", "ratio", "aim");
    for (const Size& size : sizes)
        for (const Case& c : size.cases)
            std::printf("%8d  %-24s %10.4f %10.4f %5.2f %s %4.0f\n", size.count, c.name, c.seconds,
                        c.baseline, c.seconds / c.baseline, c.unit, c.aim);
    std::printf("peak memory %.0f MB\n", PeakMegabytes());
}

void PrintJson(const std::vector<Size>& sizes) {
    nlohmann::json rows = nlohmann::json::array();
    for (const Size& size : sizes)
        for (const Case& c : size.cases)
            rows.push_back({{"items", size.count},
                            {"case", c.name},
                            {"seconds", c.seconds},
                            {"baselineSeconds", c.baseline},
                            {"ratio", c.seconds / c.baseline},
                            {"unit", c.unit},
                            {"aim", c.aim}});
    std::puts(nlohmann::json{{"cases", rows}, {"peakMegabytes", PeakMegabytes()}}.dump(2).c_str());
}

int Run(const std::vector<int>& counts, bool json, const std::string& directory) {
    std::vector<Size> sizes;
    for (const int count : counts)
        sizes.push_back(Prepare(count, directory));
    for (Size& size : sizes)
        Measure(size);
    json ? PrintJson(sizes) : PrintText(sizes);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    std::vector<int> counts;
    bool json = false;
    for (int i = 1; i < argc; ++i) {
        if (std::string(argv[i]) == "--json")
            json = true;
        else if (std::atoi(argv[i]) > 0)
            counts.push_back(std::atoi(argv[i]));
        else
            return std::fprintf(stderr, "usage: vellum-bench [--json] [COUNT...]\n"), 2;
    }
    if (counts.empty()) counts = {1000, 10000};
    const std::string directory =
        (std::filesystem::temp_directory_path() / ("vellum-bench-" + std::to_string(ProcessId()))).string();
    SetBaseDirectory(directory);
    int result = 1;
    try {
        result = Run(counts, json, directory);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "vellum-bench: %s\n", e.what());
    }
    RemoveTree(directory);
    return result;
}
