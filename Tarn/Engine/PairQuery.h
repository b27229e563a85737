// What a pair selects of a folder: the items that its query describes, and with the option none that are
// private. The run, its dry form and the commands that take a query all compile it here, so that what is
// checked is what runs.
#pragma once
#include <MapiWrapper/MapiWrapper.h>
#include <Tarn/Engine/TarnSetting.h>
#include <Tools/CompileRestriction.h>
#include <Tools/INIQuerys.h>

#include <string>

class CPairQuery {
public:
    // Compiles for `folder`, whose store numbers the named properties. `leaveOutQuery`: the private option
    // alone. Throws CMAPIException where the private items cannot be told from the others: better no run
    // than one that carries them.
    CPairQuery(const CTarnSetting& setting, const IMAPIFolderPtr& folder, bool leaveOutQuery);
    CPairQuery(const CPairQuery&) = delete;
    CPairQuery& operator=(const CPairQuery&) = delete;

    // Why the query does not select what its writer meant: it does not compile, ends before its text does,
    // or holds no condition. Words for a person; empty: it selects.
    std::string Problem() const;
    // Query and option, which both must hold; null: everything. Valid as long as this object; only of use
    // where there is no problem.
    SRestriction* Restriction() { return m_restriction; }
    // Adds the properties that the texts name to the columns of the table. Throws CMAPIException.
    void AddColumns(const IMAPITablePtr& table) const;

private:
    CINIQuerys m_stored;
    CCompileRestriction m_query;
    CCompileRestriction m_notPrivate;
    std::string m_text;  // of the query
    SRestriction m_children[2] = {};
    SRestriction m_both{};
    SRestriction* m_restriction = nullptr;
};
