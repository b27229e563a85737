// What real stores do differently from each other and from this one: facts of a store, chosen when it is
// made. Programs that work on stores of strangers are tried against each.
#pragma once
#include <MapiStore/Values/PropertyBag.h>
#include "Storage.h"

#include <Platform/StoreExtensions.h>

class CStoreHabits {
public:
    explicit CStoreHabits(ULONG bits = 0) : m_bits(bits) {}
    static CStoreHabits Read(IObjectStorage& storage);
    // Inside a save.
    void Write(IObjectStorage& storage) const;

    ULONG Bits() const { return m_bits; }
    bool Has(StoreHabit habit) const { return (m_bits & habit) != 0; }

    // What the clock ticks in, of FILETIME.
    std::uint64_t Tick() const;
    // Whether setting the property answers MAPI_E_COMPUTED because of a habit.
    bool IsComputed(PropId id) const;
    // What becomes of a body at a save. False where it stays as it is.
    bool RewriteBody(std::string_view body, std::string& rewritten) const;
    // How many rows a table gives of those asked for.
    std::size_t RowsOf(std::size_t asked) const;

    // The number that entry IDs show; a moved message keeps its serial number where they stay the same.
    ObjectId Shown(ObjectId id) const;
    std::uint64_t SerialOfMoved(ObjectId id, std::uint64_t next) const;
    // The number of the object that an entry ID shows; a message is looked for in `folder` (if not 0),
    // then everywhere.
    ObjectId Resolve(IObjectStorage& storage, ObjectId shown, ObjectId folder) const;

private:
    ULONG m_bits;
};
