// An object with properties that belongs to no store and cannot be changed: a one-off recipient.
#pragma once
#include <algorithm>

#include <MapiStore/Values/PropertyBag.h>
#include "PropObject.h"

template <class Interface>
class CPlainObject : public CPropInterface<Interface> {
public:
    CPlainObject() : CPropInterface<Interface>(nullptr, false) {}
    CPropertyBag& Bag() { return m_bag; }

    bool FindProp(PropId id, CStoredValue& value) override { return m_bag.Find(id, value); }
    bool LoadLarge(PropId, std::string&) override { return false; }
    void ListIds(std::vector<PropId>& ids) override {
        m_bag.ForEach([&ids](const CStoredValue& value) { ids.push_back(value.Id()); });
    }
    SCODE MaySet(PropId) const override { return MAPI_E_NO_ACCESS; }
    void SetStored(PropId, PropType, std::string_view) override {}
    void RemoveStored(PropId) override {}
    void Save(ULONG) override { throw CStoreError(MAPI_E_NO_ACCESS); }
    IUnknown* AsUnknown() override { return static_cast<Interface*>(this); }

private:
    CPropertyBag m_bag;
};
