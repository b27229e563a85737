// What a maintenance command works on, how it asks before, and what it shows meanwhile.
#pragma once
#include <Programs/vellum/Console/ProgressLine.h>
#include <Programs/vellum/Session/ProfileSession.h>
#include <Tarn/Dispatch/PairLock.h>
#include <Tarn/Maintenance/MaintainedFolder.h>

#include <string>
#include <vector>

class CConsole;

struct CMaintenanceTarget {
    std::vector<CFolderRef> folders;  // one, or source and target of a pair
    std::string pair;                 // the pair's name or number; empty: a folder by itself
    // Pairs that have the folder on one side; empty for a pair.
    std::vector<std::string> pairsOfFolder;
    std::vector<CFolderRef> partners;  // the other sides of these, as far as they open

    bool IsPair() const { return !pair.empty(); }
    CMaintainedFolder At(std::size_t index) const { return {folders[index].store, folders[index].folder}; }
};

// `word` is the name or number of a pair, or else the path of a folder. Throws CCommandError.
CMaintenanceTarget FindMaintained(CProfileSession& session, const std::string& word);

// Keeps runs out of the folders while it lives. Throws CCommandError with Busy, naming the holder.
class CMaintenanceLock {
public:
    CMaintenanceLock(CProfileSession& session, const CMaintenanceTarget& target);

private:
    CPairLock m_lock;
};

// Asks a person whether to go on with what `plan` says (a sentence). Throws CCommandError with Guarded where
// the answer is no, and where nobody is there to answer.
void AskBefore(CConsole& console, const std::string& plan, bool isAgreed);

// A line on a terminal, Ctrl-C as Cancel.
class CTerminalWatch : public IMaintenanceWatch {
public:
    CTerminalWatch(CConsole& console, std::string what) : m_line(console), m_what(std::move(what)) {}
    void ShowRow(unsigned row, unsigned rows) override { m_line.Show(m_what, row, rows); }
    bool IsCancelled() override;

private:
    CProgressLine m_line;
    std::string m_what;
};
