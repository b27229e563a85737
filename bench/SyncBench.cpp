// What a run costs, and a question to a folder, in units of plain SQLite programs over the same amount of
// data.
//
//   vellum-bench [--json] [--rounds N] [COUNT...]
//
//   COUNT       counts of items, 1000 and 10000 if none is given
//   --rounds N  the cases that can be repeated are run N times, the fastest counts; 3 if not given
//
// All data is made before anything is measured and deleted after everything was, because deleting masses
// of pages slows the file system for minutes.
#include "BenchWorld.h"
#include "MaintenanceWorld.h"
#include "QueryWorld.h"
#include "SqliteBaseline.h"

#include <Platform/Machine.h>
#include <Platform/Memory.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <nlohmann/json.hpp>
#include <vector>

#ifdef __GLIBC__
#include <malloc.h>
#endif

namespace {

struct Case {
    const char* name;
    const char* unit;  // "copy", "scan" (of both folders) or "folder" (the scan of one)
    double aim;        // in units
    double seconds = 0;
    double baseline = 0;
    double peakMegabytes = 0;  // of the process, in the runs of this case alone
};

struct Size {
    int count;
    std::unique_ptr<CBenchWorld> world;
    std::unique_ptr<CQueryWorld> questions;
    std::unique_ptr<CMaintenanceWorld> maintained;
    std::unique_ptr<CSqliteBaseline> baseline;
    std::vector<Case> cases;
};

// Peak memory of the process since ForgetPeak, in megabytes; 0 where the system does not tell.
double PeakMegabytes() {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
        if (line.rfind("VmHWM:", 0) == 0) return std::stod(line.substr(6)) / 1024;
    return 0;
}

// What making and changing the items left behind in the heap is not the run's.
void ForgetPeak() {
#ifdef __GLIBC__
    malloc_trim(0);
#endif
    std::ofstream("/proc/self/clear_refs") << 5;
}

Size Prepare(int count, const std::string& directory) {
    Size size{count,
              std::make_unique<CBenchWorld>(count),
              std::make_unique<CQueryWorld>(count),
              std::make_unique<CMaintenanceWorld>(count),
              nullptr,
              {}};
    const std::string own = directory + "/" + std::to_string(count);
    std::filesystem::create_directories(own);
    size.baseline = std::make_unique<CSqliteBaseline>(own);
    size.baseline->Prepare(count);
    return size;
}

template <class Body>
double Fastest(int rounds, Body body) {
    double fastest = body();
    for (int i = 1; i < rounds; ++i)
        fastest = std::min(fastest, body());
    return fastest;
}

void Measure(Size& size, int rounds) {
    CBenchWorld& world = *size.world;
    const double copy = Fastest(3, [&] { return size.baseline->Copy(); });
    const double scan = Fastest(5, [&] { return size.baseline->Scan(); });
    const auto measure = [&](const char* name, const char* unit, double aim, int times, auto change) {
        // Emptying the heap costs the run behind it a page fault for each page, so it is done only before the
        // first round, which tells the peak; the fastest of several rounds is one of the others.
        double peak = 0;
        const double seconds = Fastest(times, [&] {
            change();
            if (peak == 0) ForgetPeak();
            const double once = world.Sync();
            peak = std::max(peak, PeakMegabytes());
            return once;
        });
        size.cases.push_back({name, unit, aim, seconds, unit[0] == 'c' ? copy : scan, peak});
    };
    measure("first run", "copy", 2, 1, [] {});
    world.Sync();
    measure("nothing changed", "scan", 1, rounds, [] {});
    measure("1% changed on each side", "scan", 2, rounds, [&, round = 0]() mutable {
        world.ChangeItems(true, round % 50, 100);
        world.ChangeItems(false, 50 + round % 50, 100);
        ++round;
    });
    measure("everything changed", "copy", 4, 1, [&] { world.ChangeItems(true, 0, 1); });
    if (world.LeftCount() != static_cast<unsigned>(size.count) || world.RightCount() != world.LeftCount())
        throw std::runtime_error("the folders do not hold what they should");
}

void MeasureQuestions(Size& size, int rounds) {
    const double folder = Fastest(5, [&] { return size.baseline->ScanFolder(); });
    for (const CQueryWorld::Query& query : size.questions->Queries()) {
        ForgetPeak();
        const double seconds = Fastest(query.isFirst ? 1 : rounds, query.run);
        size.cases.push_back({query.name, "folder", query.aim, seconds, folder, PeakMegabytes()});
    }
}

// The moves count as the store's own work: what is looked for stands apart from them.
void MeasureMaintenance(Size& size, int rounds) {
    CMaintenanceWorld& world = *size.maintained;
    const double folder = Fastest(5, [&] { return size.baseline->ScanFolder(); });
    const double copy = Fastest(3, [&] { return size.baseline->Copy(); });
    const auto add = [&](const char* name, const char* unit, double aim, double seconds) {
        size.cases.push_back({name, unit, aim, seconds, unit[0] == 'c' ? copy : folder, PeakMegabytes()});
    };
    ForgetPeak();
    add("duplicates found", "folder", 3, Fastest(rounds, [&] { return world.LookForDuplicates(); }));
    add("a tenth moved", "copy", 1, world.MoveDuplicates());
    add("marks removed", "copy", 2, world.RemoveMarks());
}

void PrintText(const std::vector<Size>& sizes) {
    std::printf("%8s  %-24s %10s %10s %12s %4s %8s\n", "items", "case", "seconds", "baseline", "ratio", "aim",
                "peak MB");
    for (const Size& size : sizes)
        for (const Case& c : size.cases)
            std::printf("%8d  %-24s %10.4f %10.4f %5.2f %-6s %4.3g %8.0f\n", size.count, c.name, c.seconds,
                        c.baseline, c.seconds / c.baseline, c.unit, c.aim, c.peakMegabytes);
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
                            {"aim", c.aim},
                            {"peakMegabytes", c.peakMegabytes}});
    std::puts(nlohmann::json{{"cases", rows}}.dump(2).c_str());
}

int Run(const std::vector<int>& counts, bool json, int rounds, const std::string& directory) {
    std::vector<Size> sizes;
    for (const int count : counts)
        sizes.push_back(Prepare(count, directory));
    for (Size& size : sizes)
        Measure(size, rounds);
    for (Size& size : sizes)
        MeasureQuestions(size, rounds);
    for (Size& size : sizes)
        MeasureMaintenance(size, rounds);
    json ? PrintJson(sizes) : PrintText(sizes);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    PrepareHeap();  // as the program itself
    std::vector<int> counts;
    bool json = false;
    int rounds = 3;
    for (int i = 1; i < argc; ++i) {
        if (std::string(argv[i]) == "--json")
            json = true;
        else if (std::string(argv[i]) == "--rounds" && i + 1 < argc && std::atoi(argv[i + 1]) > 0)
            rounds = std::atoi(argv[++i]);
        else if (std::atoi(argv[i]) > 0)
            counts.push_back(std::atoi(argv[i]));
        else
            return std::fprintf(stderr, "usage: vellum-bench [--json] [--rounds N] [COUNT...]\n"), 2;
    }
    if (counts.empty()) counts = {1000, 10000};
    const std::string directory =
        (std::filesystem::temp_directory_path() / ("vellum-bench-" + std::to_string(ProcessId()))).string();
    SetBaseDirectory(directory);
    int result = 1;
    try {
        result = Run(counts, json, rounds, directory);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "vellum-bench: %s\n", e.what());
    }
    RemoveTree(directory);
    return result;
}
