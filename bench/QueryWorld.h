// A folder of one store that is asked questions: what a restriction costs beside reading the folder whole.
#pragma once
#include <support/StoreFixture.h>

#include <functional>
#include <string>
#include <vector>

class CQueryWorld {
public:
    struct Query {
        const char* name;
        double aim;    // in plain scans of the folder
        bool isFirst;  // cannot be repeated: the store makes itself ready to answer the next ones
        std::function<double()> run;
    };

    // Makes profile, store and folder with `count` items. Not measured. About one item in a hundred, and
    // no other, answers to each of the questions.
    explicit CQueryWorld(int count);

    // One question each, asked through the published table, every answer read: run() returns seconds and
    // throws std::runtime_error if the answer is not what it must be.
    std::vector<Query> Queries();

private:
    void Open();
    double Ask(SRestriction* restriction, ULONG rows);
    double AskText(ULONG tag, ULONG fuzzyLevel, std::string text, ULONG rows);
    double AskCreated();

    int m_count;
    TestProfile m_profile;
    TestRef<IMAPISession> m_session;
    TestRef<IMsgStore> m_store;
    TestRef<IMAPIFolder> m_folder;
    ULONG m_categories = 0, m_named = 0;
    ULONG m_bySubject = 0;
};
