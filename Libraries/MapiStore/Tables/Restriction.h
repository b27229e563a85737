// A restriction, checked, copied and made ready to be asked of many rows.
#pragma once
#include <MapiStore/Values/PropCompare.h>
#include "RestrictionBounds.h"
#include "RowSource.h"

#include <memory>

// One node. Shared by threads only under the store's lock: a node keeps scratch room.
class IRestrictionNode {
public:
    virtual ~IRestrictionNode() = default;
    virtual bool Matches(const IRow& row) const = 0;
    // Adds the IDs of the row's own properties that the node looks at.
    virtual void ListIds(std::vector<PropId>& ids) const = 0;
};

class CRestriction {
public:
    // Deep copy of a caller's restriction. Throws CStoreError:
    //   MAPI_E_INVALID_PARAMETER  a null pointer where one is needed (lpProp, lpRes with a count), an
    //                             unknown relation or fuzzy level
    //   MAPI_E_TOO_COMPLEX        a kind, type or regular expression that no row can answer, value and
    //                             property of different types, more than kMaxDepth levels
    //
    // `absentFits`: see HABIT_ABSENT_FITS.
    explicit CRestriction(const SRestriction& restriction, bool absentFits = false);

    // A property that is not there fulfils no relation (so its negation by RES_NOT does), or with
    // `absentFits` each; a relation on
    // a multi-valued property with a single value holds when it holds for any element.
    bool Matches(const IRow& row) const { return m_root->Matches(row); }

    // IDs of all properties of the row itself that are looked at; a row source that has them at hand
    // need not read more. Properties of recipients and attachments are not among them.
    std::vector<PropId> Ids() const;
    // True if recipients or attachments are looked at.
    bool HasSubRows() const { return m_hasSubRows; }
    // What every matching row keeps, as far as it can be told from keys; the best bound first.
    const RestrictionBounds& Bounds() const { return m_bounds; }

    static constexpr unsigned kMaxDepth = 512;

private:
    class CBuilder;
    std::unique_ptr<IRestrictionNode> m_root;
    RestrictionBounds m_bounds;
    bool m_hasSubRows = false;
    bool m_absentFits = false;
};
