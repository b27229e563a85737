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
    unsigned written = 0;             // when, by the count of the writings
    // What the other side brings next replaces this text for good: the winner of a conflict, of which no
    // copy is kept, and a change in a direction that did not run.
    bool exposed = false;
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
    // not known. What replaced a text that is not exposed must have kept it.
    void Adopt(const CModelOptions& options, const std::map<std::string, std::string>& source,
               const std::map<std::string, std::string>& target);

    std::map<std::string, std::string> Contents(bool ofSource) const;
    // Texts that must be found somewhere: in a folder, or where replaced and removed items are kept.
    const std::set<std::string>& Kept() const { return m_kept; }

private:
    void RunItem(CModelItem& item, const CModelOptions& options);
    void Carry(const CModelVersion& from, CModelVersion& to);
    void Remember(CModelItem& item, CModelVersion& version, bool direction);

    std::set<std::string> m_kept;
    unsigned m_writings = 0;
};
