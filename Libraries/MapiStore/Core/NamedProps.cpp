#include "NamedProps.h"

PropId AddName(CStoreCore& core, const PropertyName& name) {
    PropId id = 0;
    if (core.IsReadOnly()) return core.Names().Add(core.Storage(), name, false);
    core.Save([&] {
        // Another process may have been faster.
        id = core.Names().IdOf(core.Storage(), name);
        if (id == 0) id = core.Names().Add(core.Storage(), name, true);
    });
    return id;
}

PropId MapNamedId(CStoreCore& source, CStoreCore& target, PropId id) {
    if (id < kFirstNamedId || &source == &target) return id;
    const PropertyName* known = source.Names().NameOf(source.Storage(), id);
    if (!known) {
        source.RefreshNames();
        known = source.Names().NameOf(source.Storage(), id);
    }
    if (!known) return 0;
    NameMapping& mapping = target.MappingFrom(source);
    PropId& mapped = mapping.ids[id - kFirstNamedId];
    if (mapped != 0) return mapped;
    const PropertyName name = *known;
    PropId found = target.Names().IdOf(target.Storage(), name);
    if (found == 0) {
        target.RefreshNames();
        found = target.Names().IdOf(target.Storage(), name);
    }
    if (found == 0) found = AddName(target, name);
    // Looking for it may have read the names again, and with them the mapping.
    target.MappingFrom(source).ids[id - kFirstNamedId] = found;
    return found;
}
