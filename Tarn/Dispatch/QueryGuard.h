// Stops a run whose pair has a query that does not select: without it the run would carry everything.
#pragma once
#include <MapiWrapper/MapiWrapper.h>
#include <Tarn/Engine/TarnSetting.h>
#include <Tarn/Engine/syncfolder.h>

#include <functional>
#include <string>

// Of one pair at a time, for the folder that runs it. Not shared between threads.
class CQueryGuard : public IQueryGuard {
public:
    // Answers true if everything is to be carried all the same. Called at most once for a pair, on the
    // thread of the run; empty: nobody is there to ask.
    using Question = std::function<bool(const std::string& problem)>;
    explicit CQueryGuard(Question question = {}) : m_question(std::move(question)) {}

    // To be asked before a pair is run; begins a new pair. False: leave it, so that of a pair with subfolders
    // nothing has been done when the first folder is looked at. A pair whose folders cannot be opened is
    // permitted: its run will tell what is wrong.
    bool PermitsPair(const CMapiSession& session, const CTarnSetting& setting);
    // The same for two folders, during the run.
    bool PermitsQuery(const std::string& problem) override;

    // What the pair under way was stopped for; empty: it was not.
    const std::string& Refused() const { return m_refused; }

private:
    Question m_question;
    bool m_isMeant = false;
    std::string m_refused;
};
