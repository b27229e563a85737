// What two folders of a pair must hold after anything that people do and any runs between: the rules once
// more, in a few lines that share nothing with the engine.
#pragma once
#include <map>
#include <set>
#include <string>

enum class Pending { None, New, Changed, Deleted };

// One item as one side has it.
struct CModelVersion {
    bool there = false;
    std::string body;
    Pending pending = Pending::None;  // what happened since the side was last remembered
    bool remembered = false;          // the memory of the side names it
};

struct CModelItem {
    CModelVersion source, target;
    bool stamped = false;   // has a sync ID of its own even where it never was carried across
    bool branched = false;  // shares its search key with another item, or was moved
    bool ignored = false;   // the pair's query leaves it out
    std::string kin;        // the item with the same search key, if there is one

    bool OnBothSides() const { return source.there && target.there; }
    bool Nowhere() const { return !source.there && !target.there; }
    bool AwaitsRun() const { return source.pending != Pending::None || target.pending != Pending::None; }
};

struct CModelOptions {
    bool toTarget = true;
    bool toSource = true;
    bool deletions = true;
};

class CHistoryModel {
public:
    std::map<std::string, CModelItem> items;

    // --- what a person does ----------------------------------------------------------------------------
    void Create(const std::string& name, bool inSource, const std::string& body, bool stamped = false);
    void Change(const std::string& name, bool inSource, const std::string& body);
    void Remove(const std::string& name, bool inSource);

    // --- what a run makes of it ------------------------------------------------------------------------
    void Run(const CModelOptions& options);
    // Takes over what two folders hold after runs of which one was disturbed, where the order of things is
    // not known. Whatever was replaced must have been kept.
    void Adopt(const std::map<std::string, std::string>& source,
               const std::map<std::string, std::string>& target);

    std::map<std::string, std::string> Contents(bool ofSource) const;
    // Texts that must be found somewhere: in a folder, or where replaced and removed items are kept.
    const std::set<std::string>& Kept() const { return m_kept; }

private:
    static void RunItem(CModelItem& item, const CModelOptions& options);
    static void Carry(const CModelVersion& from, CModelVersion& to);
    static void Remember(CModelItem& item, CModelVersion& version);

    std::set<std::string> m_kept;
};
