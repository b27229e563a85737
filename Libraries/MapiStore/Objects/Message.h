// IMessage: a message of a folder, or one embedded in an attachment.
#pragma once
#include "MessageState.h"
#include "PropObject.h"

#include <functional>

class CAttach;

// Asks an object whether it is one of this room; answers the class pointer behind it.
// {6B8E2F2A-5E0B-4C57-9E47-0C5C2B8C1D10} and following
inline constexpr GUID IID_OwnMessage = {
    0x6b8e2f2a, 0x5e0b, 0x4c57, {0x9e, 0x47, 0x0c, 0x5c, 0x2b, 0x8c, 0x1d, 0x10}};
inline constexpr GUID IID_OwnAttach = {
    0x6b8e2f2a, 0x5e0b, 0x4c57, {0x9e, 0x47, 0x0c, 0x5c, 0x2b, 0x8c, 0x1d, 0x11}};
inline constexpr GUID IID_OwnFolder = {
    0x6b8e2f2a, 0x5e0b, 0x4c57, {0x9e, 0x47, 0x0c, 0x5c, 0x2b, 0x8c, 0x1d, 0x12}};

class CMessage : public CPropInterface<IMessage> {
public:
    // All under the lock of the store. Open throws MAPI_E_NOT_FOUND.
    static CRef<CMessage> Create(const std::shared_ptr<CStoreCore>& core, ObjectId folder, bool associated);
    static CRef<CMessage> Open(const std::shared_ptr<CStoreCore>& core, ObjectId id, bool writable);
    // The message in an attachment; with `create` a new one. MAPI_E_NOT_FOUND if there is none,
    // MAPI_E_TOO_COMPLEX if it would lie too deep.
    static CRef<CMessage> OpenEmbedded(CAttach& owner, bool create, bool writable);
    // A message that stands for itself, on a core of no store: SaveChanges hands its contents to `save`,
    // under the lock; `released` is called when the object goes.
    using SaveSnapshot = std::function<void(const MessageSnapshot&)>;
    static CRef<CMessage> OpenDetached(const std::shared_ptr<CStoreCore>& core,
                                       const MessageSnapshot& snapshot, bool writable, SaveSnapshot save,
                                       std::function<void(IMessage*)> released);
    ~CMessage() override;

    // For its attachments.
    void PutAttachment(std::shared_ptr<const AttachmentSnapshot> saved) {
        m_state.PutAttachment(std::move(saved));
    }
    unsigned Depth() const { return m_depth; }

    HRESULT STDMETHODCALLTYPE GetAttachmentTable(ULONG flags, LPMAPITABLE* table) override;
    HRESULT STDMETHODCALLTYPE OpenAttach(ULONG number, LPCIID iid, ULONG flags, LPATTACH* attach) override;
    HRESULT STDMETHODCALLTYPE CreateAttach(LPCIID iid, ULONG flags, ULONG* number, LPATTACH* attach) override;
    HRESULT STDMETHODCALLTYPE DeleteAttach(ULONG number, ULONG, LPMAPIPROGRESS, ULONG flags) override;
    HRESULT STDMETHODCALLTYPE GetRecipientTable(ULONG flags, LPMAPITABLE* table) override;
    HRESULT STDMETHODCALLTYPE ModifyRecipients(ULONG flags, LPADRLIST mods) override;
    HRESULT STDMETHODCALLTYPE SubmitMessage(ULONG flags) override;
    HRESULT STDMETHODCALLTYPE SetReadFlag(ULONG flags) override;

    bool FindProp(PropId id, CStoredValue& value) override;
    bool LoadLarge(PropId id, std::string& bytes) override { return m_state.LoadLarge(id, bytes); }
    void ListIds(std::vector<PropId>& ids) override;
    void ListObjects(std::vector<ULONG>& tags) override;
    SCODE MaySet(PropId id) const override;
    void SetStored(PropId id, PropType type, std::string_view bytes) override;
    void RemoveStored(PropId id) override;
    void OpenObject(ULONG tag, REFIID iid, ULONG options, ULONG flags, IUnknown** object) override;
    void Save(ULONG flags) override;
    void CopyAll(const SPropTagArray* exclude, const SPropTagArray* include, IUnknown* target, ULONG flags,
                 std::vector<CopyProblem>& problems) override;
    IUnknown* AsUnknown() override { return static_cast<IMessage*>(this); }

protected:
    void* FindInterface(REFIID riid) override;

private:
    CMessage(const std::shared_ptr<CStoreCore>& core, bool writable);
    // Lies in no folder: in an attachment, or detached.
    bool IsEmbedded() const { return m_owner || m_save; }
    bool IsSaved() const { return m_head.id != 0; }
    bool FindTime(PropId id, CStoredValue& value) const;
    void FillIn();
    void SaveTop(ULONG flags);
    void SaveEmbedded();
    void TakeOverChanges(MessageHead& head);
    void WriteRow(MessageHead& head, CMessageState::Written& written, ULONG flags);
    void OpenRecipientTable(ULONG flags, IMAPITable** table);
    void OpenAttachmentTable(ULONG flags, IMAPITable** table);
    void CopyToOwn(CMessage& target, const SPropTagArray* exclude, const SPropTagArray* include, ULONG flags,
                   std::vector<CopyProblem>& problems);
    void CopyPropsTo(CMessage& target, const SPropTagArray* exclude, const SPropTagArray* include,
                     ULONG flags, std::vector<CopyProblem>& problems);

    CMessageState m_state;
    MessageHead m_head;     // id 0: not saved yet, or embedded
    ObjectId m_folder = 0;  // 0: embedded
    bool m_associated = false;
    bool m_headChanged = false;
    bool m_flagsSet = false;
    std::optional<std::uint64_t> m_setCreated, m_setModified;  // by SetProps since the last save
    CRef<CAttach> m_owner;                                     // of an embedded message
    SaveSnapshot m_save;                                       // of a detached one
    std::function<void(IMessage*)> m_released;
    unsigned m_depth = 0;  // of embedding
};

// True for the properties of messages that only the store sets.
bool IsComputedOfMessage(PropId id);
// Snapshots with the IDs of named properties changed from one store's to another's.
std::shared_ptr<const MessageSnapshot> MapSnapshot(CStoreCore& from, CStoreCore& to,
                                                   std::shared_ptr<const MessageSnapshot> message);
std::shared_ptr<const AttachmentSnapshot> MapSnapshot(CStoreCore& from, CStoreCore& to,
                                                      std::shared_ptr<const AttachmentSnapshot> attachment);
