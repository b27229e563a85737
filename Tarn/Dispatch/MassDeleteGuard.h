// Stops a run that would delete so much that somebody may not have meant it.
#pragma once
#include <MapiWrapper/MapiWrapper.h>
#include <Tarn/Engine/TarnSetting.h>
#include <Tarn/Engine/syncfolder.h>

#include <functional>
#include <optional>
#include <string>

inline constexpr unsigned kMassDeleteShare = 50;  // per cent, where nobody has said otherwise
inline constexpr unsigned kMassDeleteLeast = 10;  // fewer deletions are never many

// "24 of the 30 items in "Inbox" would be deleted"
std::string MassDeletionText(const CPlannedDeletions& planned);

// Of one pair at a time, for the folder that runs it. Not shared between threads.
class CMassDeleteGuard : public IRunGuard {
public:
    // Answers true if the deletions are meant. Called at most once for a pair, on the thread of the run;
    // empty: nobody is there to ask.
    using Question = std::function<bool(const CPlannedDeletions&)>;

    // Too many are more than `sharePercent` of the items of one side, and at least kMassDeleteLeast.
    explicit CMassDeleteGuard(unsigned sharePercent, Question question = {})
        : m_sharePercent(sharePercent), m_question(std::move(question)) {}

    // To be asked before a pair is run; begins a new pair. A pair with subfolders is looked at as a whole,
    // so that nothing of it has been done when a folder that comes late holds too many deletions. False:
    // leave it. A pair that cannot be looked at is permitted: its run will tell what is wrong.
    bool PermitsPair(const CMapiSession& session, CTarnSetting& setting, CSyncProgress* progress);
    // The same for two folders, during the run.
    bool Permits(const CPlannedDeletions& inSource, const CPlannedDeletions& inTarget) override;

    // What the pair under way was stopped for.
    const std::optional<CPlannedDeletions>& Refused() const { return m_refused; }

private:
    bool IsTooMany(const CPlannedDeletions& planned) const;
    bool PermitsOne(const CPlannedDeletions& planned);

    unsigned m_sharePercent;
    Question m_question;
    bool m_isMeant = false;  // the person said so
    std::optional<CPlannedDeletions> m_refused;
};
