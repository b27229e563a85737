// Where the rows of a table come from. All calls under the lock of the store, if there is one.
#pragma once
#include "Restriction.h"

#include <functional>
#include <memory>
#include <vector>

// Names a row for as long as it exists: the number of a message or folder, the index of a fixed row.
using RowKey = std::uint64_t;

// What a scan is for. A source that can answer from less than the whole row may do so.
struct RowNeeds {
    bool keysOnly = false;                      // the row itself is not looked at
    const std::vector<PropId>* ids = nullptr;   // only these properties are looked at, if not null
    const RestrictionBounds* bounds = nullptr;  // rows that do not keep one of them may be left out
};

class ITableSource {
public:
    virtual ~ITableSource() = default;

    // All rows in their natural order. The row is valid during the call; `each` answers false to stop and
    // must not scan again.
    using Each = std::function<bool(RowKey, const IRow&)>;
    virtual void Scan(const RowNeeds& needs, const Each& each) = 0;
    // One row. False if it has gone.
    virtual bool Read(RowKey key, const std::function<void(const IRow&)>& body) = 0;
    // Grows when the rows may have changed; always the same for rows that stand still.
    virtual std::uint64_t Version() { return 0; }
    virtual const std::vector<ULONG>& DefaultColumns() const = 0;

    // For tables that notify. The store to watch; null for rows that stand still.
    virtual CStoreCore* Core() const { return nullptr; }
    // Adds the rows that an event touches.
    virtual void ListTouched(const StoreEvent&, std::vector<RowKey>&) const {}
    // Differs when the row's contents do.
    virtual std::uint64_t StampOf(const IRow&) const { return 0; }
};
