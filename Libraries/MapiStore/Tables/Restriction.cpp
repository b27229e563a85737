#include "Restriction.h"

#include <MapiStore/Values/PropertyCodec.h>
#include <MapiStore/Values/StoreError.h>

#include <algorithm>

namespace {

using NodePtr = std::unique_ptr<IRestrictionNode>;

// A constant in stored form.
struct Constant {
    PropType type = 0;
    std::string bytes;
    void View(PropId id, CStoredValue& value) const { value.View(id, type, bytes); }
};

// Finds the property with its bytes, also where they have to be loaded first.
class CLoadedValue {
public:
    CLoadedValue(const IRow& row, PropId id) : m_found(row.Find(id, m_value)) {
        if (m_found && m_value.IsLarge()) {
            m_found = row.LoadLarge(id, m_bytes);
            if (m_found) m_value.View(id, m_value.Type(), m_bytes);
        }
    }
    explicit operator bool() const { return m_found; }
    const CStoredValue& operator*() const { return m_value; }

private:
    CStoredValue m_value;
    std::string m_bytes;
    bool m_found;
};

class CGroup final : public IRestrictionNode {
public:
    CGroup(std::vector<NodePtr> children, bool all) : m_children(std::move(children)), m_all(all) {}
    bool Matches(const IRow& row) const override {
        for (const NodePtr& child : m_children)
            if (child->Matches(row) != m_all) return !m_all;
        return m_all;
    }
    void ListIds(std::vector<PropId>& ids) const override {
        for (const NodePtr& child : m_children)
            child->ListIds(ids);
    }

private:
    std::vector<NodePtr> m_children;
    bool m_all;  // AND: one that fails decides; OR: one that holds does
};

class CNot final : public IRestrictionNode {
public:
    explicit CNot(NodePtr child) : m_child(std::move(child)) {}
    bool Matches(const IRow& row) const override { return !m_child->Matches(row); }
    void ListIds(std::vector<PropId>& ids) const override { m_child->ListIds(ids); }

private:
    NodePtr m_child;
};

// Base of the nodes that look at one property.
class COfProperty : public IRestrictionNode {
public:
    explicit COfProperty(PropId id) : m_id(id) {}
    void ListIds(std::vector<PropId>& ids) const override { ids.push_back(m_id); }

protected:
    const PropId m_id;
};

class CContent final : public COfProperty {
public:
    CContent(PropId id, const CStoredValue& pattern, ULONG fuzzyLevel)
        : COfProperty(id), m_pattern(pattern, fuzzyLevel) {}
    bool Matches(const IRow& row) const override {
        const CLoadedValue value(row, m_id);
        return value && m_pattern.Matches(*value);
    }

private:
    CContentPattern m_pattern;
};

class CRelation final : public COfProperty {
public:
    CRelation(PropId id, ULONG relop, Constant constant, bool absentFits)
        : COfProperty(id), m_relop(relop), m_constant(std::move(constant)), m_absentFits(absentFits) {}
    bool Matches(const IRow& row) const override {
        const CLoadedValue value(row, m_id);
        if (!value) return m_absentFits;
        CStoredValue wanted;
        m_constant.View(m_id, wanted);
        const auto holds = [&](const CStoredValue& one) {
            const auto order = CompareStored(one, wanted);
            return order && RelationHolds(m_relop, *order);
        };
        return (m_constant.type & MV_FLAG) ? holds(*value) : AnyElement(*value, holds);
    }

private:
    ULONG m_relop;
    Constant m_constant;
    bool m_absentFits;
};

class CCompareProps final : public IRestrictionNode {
public:
    CCompareProps(ULONG relop, PropId first, PropId second)
        : m_relop(relop), m_first(first), m_second(second) {}
    bool Matches(const IRow& row) const override {
        const CLoadedValue first(row, m_first), second(row, m_second);
        if (!first || !second) return false;
        const auto order = CompareStored(*first, *second);
        return order && RelationHolds(m_relop, *order);
    }
    void ListIds(std::vector<PropId>& ids) const override {
        ids.push_back(m_first);
        ids.push_back(m_second);
    }

private:
    ULONG m_relop;
    PropId m_first, m_second;
};

class CBitMask final : public COfProperty {
public:
    CBitMask(PropId id, ULONG relation, ULONG mask)
        : COfProperty(id), m_wantZero(relation == BMR_EQZ), m_mask(mask) {}
    bool Matches(const IRow& row) const override {
        CStoredValue value;
        if (!row.Find(m_id, value)) return false;
        ULONG bits = 0;
        switch (value.Type()) {
            case PT_LONG:
            case PT_I8:
                bits = value.As<std::uint32_t>();
                break;
            case PT_I2:
            case PT_BOOLEAN:
                bits = value.As<std::uint16_t>();
                break;
            default:
                return false;
        }
        return ((bits & m_mask) == 0) == m_wantZero;
    }

private:
    bool m_wantZero;
    ULONG m_mask;
};

class CSize final : public COfProperty {
public:
    CSize(PropId id, bool wide, ULONG relop, ULONG cb)
        : COfProperty(id), m_wide(wide), m_relop(relop), m_cb(cb) {}
    bool Matches(const IRow& row) const override {
        CStoredValue value;
        if (!row.Find(m_id, value)) return false;
        const std::size_t cb = SizeOf(row, value);
        return RelationHolds(m_relop, cb < m_cb ? -1 : (cb > m_cb ? 1 : 0));
    }

private:
    // Text counts with its terminator, in the width of the tag that the restriction names.
    std::size_t SizeOf(const IRow& row, const CStoredValue& value) const {
        const bool text = (value.Type() & ~MV_FLAG) == PT_STRING8;
        const bool binaries = value.Type() == PT_MV_BINARY;
        if (!text && !binaries) return value.Size();
        if (value.Type() == PT_STRING8 && !m_wide) return value.Size() + 1;
        std::size_t cb = 0;
        if (const CLoadedValue loaded(row, m_id); loaded) {
            AnyElement(*loaded, [&](const CStoredValue& element) {
                if (binaries)
                    cb += element.Size();
                else
                    cb += m_wide ? Utf16BytesFromUtf8(element.Bytes()).size() + 2 : element.Size() + 1;
                return false;
            });
        }
        return cb;
    }

    bool m_wide;
    ULONG m_relop;
    std::size_t m_cb;
};

class CExist final : public COfProperty {
public:
    CExist(PropId id, PropType type) : COfProperty(id), m_type(type) {}
    bool Matches(const IRow& row) const override {
        CStoredValue value;
        return row.Find(m_id, value) && (m_type == 0 || value.Type() == m_type);
    }

private:
    PropType m_type;  // stored type, 0 for any
};

class CSubRows final : public IRestrictionNode {
public:
    CSubRows(ULONG tag, NodePtr child) : m_tag(tag), m_child(std::move(child)) {}
    bool Matches(const IRow& row) const override {
        bool found = false;
        row.ForEachSubRow(m_tag, [&](const IRow& subRow) {
            found = m_child->Matches(subRow);
            return !found;
        });
        return found;
    }
    void ListIds(std::vector<PropId>&) const override {}

private:
    ULONG m_tag;
    NodePtr m_child;
};

PropId IdOf(ULONG tag) {
    return static_cast<PropId>(PROP_ID(tag));
}

void CheckRelation(ULONG relop) {
    Require(relop != RELOP_RE, MAPI_E_TOO_COMPLEX);
    Require(relop < RELOP_RE, MAPI_E_INVALID_PARAMETER);
}

// The value of a restriction, which must be of the property's type; text goes with text of the other
// width, a single value with a multi-valued property.
Constant ConstantOf(ULONG tag, const SPropValue* value) {
    Require(value != nullptr, MAPI_E_INVALID_PARAMETER);
    Constant constant;
    Require(AppendStored(*value, constant.bytes, constant.type), MAPI_E_TOO_COMPLEX);
    const PropType wanted = StoredTypeOf(PROP_TYPE(tag) & ~static_cast<ULONG>(MV_INSTANCE));
    const bool fits =
        PROP_TYPE(tag) == PT_UNSPECIFIED || wanted == constant.type || (wanted & ~MV_FLAG) == constant.type;
    Require(fits, MAPI_E_TOO_COMPLEX);
    return constant;
}

// A node and what can be told of the rows that it matches.
struct Built {
    NodePtr node;
    RestrictionBounds bounds;
};

}  // namespace

class CRestriction::CBuilder {
public:
    explicit CBuilder(CRestriction& owner) : m_owner(owner) {}

    Built Build(const SRestriction& r, unsigned depth) {
        Require(depth < kMaxDepth, MAPI_E_TOO_COMPLEX);
        switch (r.rt) {
            case RES_AND:
                return Group(r.res.resAnd.cRes, r.res.resAnd.lpRes, true, depth);
            case RES_OR:
                return Group(r.res.resOr.cRes, r.res.resOr.lpRes, false, depth);
            case RES_NOT:
                Require(r.res.resNot.lpRes != nullptr, MAPI_E_INVALID_PARAMETER);
                return {std::make_unique<CNot>(Build(*r.res.resNot.lpRes, depth + 1).node), {}};
            case RES_CONTENT:
                return Content(r.res.resContent);
            case RES_PROPERTY:
                return Relation(r.res.resProperty);
            case RES_COMPAREPROPS:
                return {CompareProps(r.res.resCompareProps), {}};
            case RES_BITMASK:
                return {BitMask(r.res.resBitMask), {}};
            case RES_SIZE:
                return {Size(r.res.resSize), {}};
            case RES_EXIST:
                return {Exist(r.res.resExist), {}};
            case RES_SUBRESTRICTION:
                return {SubRows(r.res.resSub, depth), {}};
            case RES_COMMENT:
                if (!r.res.resComment.lpRes) return Group(0, nullptr, true, depth);
                return Build(*r.res.resComment.lpRes, depth + 1);
            default:
                throw CStoreError(MAPI_E_TOO_COMPLEX);
        }
    }

private:
    Built Group(ULONG count, const SRestriction* list, bool all, unsigned depth) {
        Require(list || count == 0, MAPI_E_INVALID_PARAMETER);
        std::vector<NodePtr> children;
        std::vector<RestrictionBounds> bounds;
        for (ULONG i = 0; i < count; ++i) {
            Built child = Build(list[i], depth + 1);
            children.push_back(std::move(child.node));
            bounds.push_back(std::move(child.bounds));
        }
        return {std::make_unique<CGroup>(std::move(children), all),
                all ? BoundsOfAll(std::move(bounds)) : BoundsOfAny(std::move(bounds))};
    }

    static Built Content(const SContentRestriction& r) {
        const ULONG how = r.ulFuzzyLevel & 0xFFFF;
        constexpr ULONG known = FL_IGNORECASE | FL_IGNORENONSPACE | FL_LOOSE | 0xFFFF;
        Require(how <= FL_PREFIX && (r.ulFuzzyLevel & ~known) == 0, MAPI_E_INVALID_PARAMETER);
        const Constant constant = ConstantOf(r.ulPropTag, r.lpProp);
        Require(constant.type == PT_STRING8 || constant.type == PT_BINARY, MAPI_E_TOO_COMPLEX);
        CStoredValue pattern;
        constant.View(IdOf(r.ulPropTag), pattern);
        return {std::make_unique<CContent>(IdOf(r.ulPropTag), pattern, r.ulFuzzyLevel),
                BoundsOfContent(pattern, r.ulFuzzyLevel)};
    }

    Built Relation(const SPropertyRestriction& r) {
        CheckRelation(r.relop);
        Constant constant = ConstantOf(r.ulPropTag, r.lpProp);
        CStoredValue wanted;
        constant.View(IdOf(r.ulPropTag), wanted);
        // A constant of several elements is compared as a whole, which no key tells.
        RestrictionBounds bounds;
        if (!(constant.type & MV_FLAG)) bounds = BoundsOfRelation(r.relop, wanted);
        return {std::make_unique<CRelation>(IdOf(r.ulPropTag), r.relop, std::move(constant),
                                            m_owner.m_absentFits),
                std::move(bounds)};
    }

    static NodePtr CompareProps(const SComparePropsRestriction& r) {
        CheckRelation(r.relop);
        const PropType first = StoredTypeOf(PROP_TYPE(r.ulPropTag1));
        Require(first == StoredTypeOf(PROP_TYPE(r.ulPropTag2)), MAPI_E_TOO_COMPLEX);
        return std::make_unique<CCompareProps>(r.relop, IdOf(r.ulPropTag1), IdOf(r.ulPropTag2));
    }

    static NodePtr BitMask(const SBitMaskRestriction& r) {
        Require(r.relBMR == BMR_EQZ || r.relBMR == BMR_NEZ, MAPI_E_INVALID_PARAMETER);
        switch (PROP_TYPE(r.ulPropTag)) {
            case PT_UNSPECIFIED:
            case PT_LONG:
            case PT_I2:
            case PT_I8:
            case PT_BOOLEAN:
                return std::make_unique<CBitMask>(IdOf(r.ulPropTag), r.relBMR, r.ulMask);
            default:
                throw CStoreError(MAPI_E_TOO_COMPLEX);
        }
    }

    static NodePtr Size(const SSizeRestriction& r) {
        CheckRelation(r.relop);
        const bool wide = (PROP_TYPE(r.ulPropTag) & ~static_cast<ULONG>(MVI_FLAG)) == PT_UNICODE;
        return std::make_unique<CSize>(IdOf(r.ulPropTag), wide, r.relop, r.cb);
    }

    static NodePtr Exist(const SExistRestriction& r) {
        const PropType type = PROP_TYPE(r.ulPropTag) == PT_NULL ? 0 : StoredTypeOf(PROP_TYPE(r.ulPropTag));
        return std::make_unique<CExist>(IdOf(r.ulPropTag), type);
    }

    NodePtr SubRows(const SSubRestriction& r, unsigned depth) {
        Require(r.lpRes != nullptr, MAPI_E_INVALID_PARAMETER);
        Require(r.ulSubObject == PR_MESSAGE_RECIPIENTS || r.ulSubObject == PR_MESSAGE_ATTACHMENTS,
                MAPI_E_TOO_COMPLEX);
        m_owner.m_hasSubRows = true;
        return std::make_unique<CSubRows>(r.ulSubObject, Build(*r.lpRes, depth + 1).node);
    }

    CRestriction& m_owner;
};

CRestriction::CRestriction(const SRestriction& restriction, bool absentFits) : m_absentFits(absentFits) {
    Built built = CBuilder(*this).Build(restriction, 0);
    m_root = std::move(built.node);
    if (!absentFits) m_bounds = std::move(built.bounds);  // keys tell nothing of what is absent
}

std::vector<PropId> CRestriction::Ids() const {
    std::vector<PropId> ids;
    m_root->ListIds(ids);
    std::sort(ids.begin(), ids.end());
    ids.erase(std::unique(ids.begin(), ids.end()), ids.end());
    return ids;
}
