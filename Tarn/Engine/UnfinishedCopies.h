// Copies that an earlier run made and could not link, because it died.
#pragma once
#include <Tarn/Engine/StoreBatch.h>
#include <Tarn/Engine/syncfolder.h>

#include <set>
#include <string>
#include <vector>

// One folder of a pair as these copies are looked for in it. Everything is the caller's.
struct CCopySide {
    const IMsgStorePtr& store;
    const IMAPIFolderPtr& folder;
    const CMapiRowSet& rows;
    CSyncFileMap& memory;
    CStoreBatch& batch;
};

// Links them, so that what comes after sees nothing but whole links and items without any. A copy whose link
// another item bears already (the old version that it was to replace) goes to the folder of overwritten
// items: the run makes it anew. For one use.
class CUnfinishedCopies {
public:
    CUnfinishedCopies(CSyncFolder& engine, CCopySide own, CCopySide other)
        : m_engine(engine), m_own(own), m_other(other) {}

    // Those in the own folder. Never throws CMAPIException; what fails is counted.
    void Finish();
    // What the rows do not tell any more.
    bool ChangedOwn() const { return m_changedOwn; }
    bool ChangedOther() const { return m_changedOther; }

private:
    struct CCopy {
        IMessagePtr message;
        std::string syncId;
    };
    bool MayBeCopy(ULONG row) const;
    void Look(ULONG row);
    bool IsHeld(const std::string& syncId, const CItemKeyView& copy) const;
    void PutAside(const CItemKeyView& copy);

    CSyncFolder& m_engine;
    const CCopySide m_own;
    const CCopySide m_other;
    CMapiBinary m_ownPlace;
    CMapiBinary m_otherPlace;
    std::vector<CCopy> m_copies;
    std::set<std::string> m_given;  // links that copies are about to get
    bool m_changedOwn = false;
    bool m_changedOther = false;
};
