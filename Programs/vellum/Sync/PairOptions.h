// The options of a pair as switches of the command line and as words for a person.
#pragma once
#include <Programs/vellum/Console/Listing.h>
#include <Tarn/Engine/TarnSetting.h>
#include <CLI/CLI.hpp>

#include <optional>
#include <string>

// What a command line said about a pair; what it did not say stays as it was.
class CPairOptions {
public:
    // Enters the switches into a command.
    void AddTo(CLI::App& command);
    bool IsEmpty() const;  // nothing was said
    // Changes the flags and texts that were given. Throws CCommandError for switches that contradict
    // each other, and for combinations that would destroy items.
    void Apply(CTarnSetting& pair) const;

    const std::optional<std::string>& Query() const { return m_query; }
    const std::optional<std::string>& Name() const { return m_name; }

private:
    // One for each option, in the order of the table; as given on the command line.
    struct Switch {
        bool on = false;
        bool off = false;
    };
    bool m_both = false;
    bool m_toTarget = false;
    bool m_fromTarget = false;
    std::vector<Switch> m_switches;
    std::optional<std::string> m_query;
    std::optional<std::string> m_name;
};

// "both", "to-target", "from-target" or "none".
std::string DirectionWord(const CTarnSetting& pair);
// The options that are set, as they would be written: "--delete --subfolders".
std::string OptionWords(const CTarnSetting& pair);
// {"name", "number", "source", "target", "active", "direction", each option by its name, "query"}.
Json PairToJson(const CTarnSetting& pair, std::size_t number);
