// Two plain SQLite programs over the same data as the benchmark's stores: what a synchronisation would
// cost if it had nothing to decide. They are the measure that every figure is divided by.
#pragma once
#include <cstdint>
#include <string>

struct BaselineItem {
    std::string key;  // 16 bytes
    std::string subject;
    std::string body;    // about a kilobyte
    std::uint64_t time;  // ticks
};

// Number of property rows that each item has beside its own row.
inline constexpr int kBaselineProperties = 30;

// Two database files below a directory. All functions throw std::runtime_error with SQLite's message.
class CSqliteBaseline {
public:
    explicit CSqliteBaseline(const std::string& directory);

    // Fills the first file with `count` items. Not measured.
    void Prepare(int count);

    // Copies every item, a row with its body and thirty property rows, from the first file into an
    // emptied second one: one transaction, WAL, synchronous NORMAL. Returns seconds.
    double Copy();

    // Reads key and time of all items of both files and compares them. Returns seconds.
    double Scan();

    // Reads key, time and subject of all items of the first file. Returns seconds.
    double ScanFolder();

private:
    std::string m_source;
    std::string m_target;
};
