// IAttach: an attachment of an open message. What is done to it shows in the message after its own
// SaveChanges, and in the store after the message's.
#pragma once
#include "Message.h"

class CAttach : public CPropInterface<IAttach> {
public:
    static CRef<CAttach> Create(CMessage& parent, std::uint32_t number);
    static CRef<CAttach> Open(CMessage& parent, const AttachmentSlot& slot, bool writable);

    CMessage& Parent() const { return *m_parent; }
    // What is embedded as it stands in this object; null if nothing is.
    std::shared_ptr<const MessageSnapshot> Embedded();
    void PutEmbedded(std::shared_ptr<const MessageSnapshot> message);
    // The whole as its SaveChanges would leave it.
    std::shared_ptr<const AttachmentSnapshot> Snapshot();

    bool FindProp(PropId id, CStoredValue& value) override;
    bool LoadLarge(PropId id, std::string& bytes) override;
    void ListIds(std::vector<PropId>& ids) override;
    void ListObjects(std::vector<ULONG>& tags) override;
    SCODE MaySet(PropId id) const override;
    void SetStored(PropId id, PropType type, std::string_view bytes) override { m_bag.Set(id, type, bytes); }
    void RemoveStored(PropId id) override { m_bag.Remove(id); }
    void OpenObject(ULONG tag, REFIID iid, ULONG options, ULONG flags, IUnknown** object) override;
    void Save(ULONG flags) override;
    void CopyAll(const SPropTagArray* exclude, const SPropTagArray* include, IUnknown* target, ULONG flags,
                 std::vector<CopyProblem>& problems) override;
    IUnknown* AsUnknown() override { return static_cast<IAttach*>(this); }

protected:
    void* FindInterface(REFIID riid) override;

private:
    CAttach(CMessage& parent, bool writable)
        : CPropInterface(parent.SharedCore(), writable), m_parent(CRef<CMessage>::Share(&parent)) {}
    const std::string& OldLarge();
    void RequireStored();

    CRef<CMessage> m_parent;
    CPropertyBag m_bag;
    std::shared_ptr<const AttachmentSnapshot> m_saved;  // in the message, but not yet in the store
    std::optional<std::string> m_large;                 // else its large values, once they were asked for
    ObjectId m_storedId = 0;
    std::uint32_t m_number = 0;
    bool m_new = false;
    bool m_embeddedChanged = false;
    std::optional<std::shared_ptr<const MessageSnapshot>> m_embedded;  // empty: not looked up yet
};
