// What IMAPIFolder does to messages and folders.
#include <algorithm>

#include <MapiStore/Storage/WellKnown.h>
#include "Folder.h"
#include "FolderTree.h"

namespace {

void CheckList(const ENTRYLIST* list) {
    Require(list && (list->cValues == 0 || list->lpbin), MAPI_E_INVALID_PARAMETER);
}

const ENTRYID* EntryOf(const SBinary& binary) {
    return reinterpret_cast<const ENTRYID*>(binary.lpb);
}

// Runs `each` for every entry; one that fails does not stop the others, unless the whole store is the
// reason.
template <class Each>
HRESULT ForEachEntry(const ENTRYLIST& list, Each&& each) {
    bool partial = false;
    for (ULONG i = 0; i < list.cValues; ++i) {
        try {
            each(list.lpbin[i]);
        } catch (const CStoreError& error) {
            const HRESULT hr = error.Code();
            const bool ofItem = hr == MAPI_E_NOT_FOUND || hr == MAPI_E_INVALID_ENTRYID ||
                                hr == MAPI_E_UNKNOWN_ENTRYID || hr == MAPI_E_OBJECT_DELETED ||
                                hr == MAPI_E_CORRUPT_DATA || hr == MAPI_E_OBJECT_CHANGED;
            if (!ofItem) throw;
            partial = true;
        }
    }
    return partial ? MAPI_W_PARTIAL_COMPLETION : S_OK;
}

CRef<CFolder> AsOwnFolder(void* target) {
    CFolder* own = nullptr;
    if (FAILED(static_cast<IUnknown*>(target)->QueryInterface(IID_OwnFolder, reinterpret_cast<void**>(&own))))
        return {};
    return CRef<CFolder>::Take(own);
}

bool IsStandard(ObjectId folder) {
    return folder <= kLastWellKnownFolder;
}

}  // namespace

// --- messages --------------------------------------------------------------------------------------

HRESULT CFolder::CreateMessage(LPCIID iid, ULONG flags, LPMESSAGE* message) {
    return GuardedCall(Core(), [&] {
        Require(message, MAPI_E_INVALID_PARAMETER);
        *message = nullptr;
        Require(!iid || *iid == IID_IMessage || *iid == IID_IMAPIProp || *iid == IID_IUnknown,
                MAPI_E_INTERFACE_NOT_SUPPORTED);
        constexpr ULONG known = MAPI_ASSOCIATED | MAPI_DEFERRED_ERRORS;
        Require((flags & ~known) == 0, MAPI_E_UNKNOWN_FLAGS);
        RequireWritable();
        *message = CMessage::Create(SharedCore(), m_head.id, (flags & MAPI_ASSOCIATED) != 0).Detach();
        return S_OK;
    });
}

ObjectId CFolder::MessageHere(const SBinary& entry) const {
    StoreUid uid;
    ObjectId number = 0;
    Require(ParseEntryId(entry.cb, EntryOf(entry), uid, number) && IsMessageId(number),
            MAPI_E_INVALID_ENTRYID);
    Require(uid == Core().Uid(), MAPI_E_NOT_FOUND);
    number = Core().Habits().Resolve(Core().Storage(), number, m_head.id);
    Require(FolderOf(number) == m_head.id, MAPI_E_NOT_FOUND);
    return number;
}

HRESULT CFolder::CopyMessages(LPENTRYLIST list, LPCIID, LPVOID target, ULONG, LPMAPIPROGRESS, ULONG flags) {
    return GuardedCall([&] {
        CheckList(list);
        Require(target, MAPI_E_INVALID_PARAMETER);
        constexpr ULONG known = MESSAGE_MOVE | MESSAGE_DIALOG | MAPI_DECLINE_OK;
        Require((flags & ~known) == 0, MAPI_E_UNKNOWN_FLAGS);
        const bool move = (flags & MESSAGE_MOVE) != 0;
        if (move) RequireWritable();
        if (const auto own = AsOwnFolder(target)) {
            const CTwoStoreCall call(Core(), own->Core());
            return CopyMessagesOwn(*list, *own, move);
        }
        { const CStoreCall counted(Core()); }
        CRef<IMAPIFolder> other;
        if (FAILED(static_cast<IUnknown*>(target)->QueryInterface(IID_IMAPIFolder,
                                                                  reinterpret_cast<void**>(other.Out()))))
            throw CStoreError(MAPI_E_INTERFACE_NOT_SUPPORTED);
        return CopyMessagesForeign(*list, other.Get(), move);
    });
}

HRESULT CFolder::CopyMessagesOwn(const ENTRYLIST& list, CFolder& target, bool move) {
    CStoreCore &from = Core(), &to = target.Core();
    Require(target.IsWritable(), MAPI_E_NO_ACCESS);
    return ForEachEntry(list, [&](const SBinary& entry) {
        const ObjectId id = MessageHere(entry);
        // The copy is saved before the original goes: a death between the two leaves both, never none.
        to.Save([&] {
            target.Reload();
            if (move && &from == &to)
                MoveMessageRow(to, id, target.Id());
            else
                CopyMessageRow(from, id, to, target.Id(), IsAssociated(id));
        });
        if (!move || &from == &to) return;
        from.Save([&] {
            from.Storage().DeleteMessage(id);
            from.Publish({fnevObjectDeleted, MAPI_MESSAGE, id, m_head.id, 0, 0});
        });
    });
}

// Into a folder of somebody else's store, by published operations.
HRESULT CFolder::CopyMessagesForeign(const ENTRYLIST& list, IMAPIFolder* target, bool move) {
    return ForEachEntry(list, [&](const SBinary& entry) {
        CRef<CMessage> source;
        {
            const CStoreLock lock(Core());
            source = CMessage::Open(SharedCore(), MessageHere(entry), false);
        }
        CRef<IMessage> copy;
        HRESULT hr = target->CreateMessage(nullptr, 0, copy.Out());
        if (SUCCEEDED(hr))
            hr = source->CopyTo(0, nullptr, nullptr, 0, nullptr, &IID_IMessage, copy.Get(), 0, nullptr);
        if (SUCCEEDED(hr)) hr = copy->SaveChanges(0);
        if (FAILED(hr)) throw CStoreError(hr);
        if (!move) return;
        const CStoreLock lock(Core());
        const ObjectId id = MessageHere(entry);
        Core().Save([&] {
            Core().Storage().DeleteMessage(id);
            Core().Publish({fnevObjectDeleted, MAPI_MESSAGE, id, m_head.id, 0, 0});
        });
    });
}

HRESULT CFolder::DeleteMessages(LPENTRYLIST list, ULONG, LPMAPIPROGRESS, ULONG flags) {
    return GuardedCall(Core(), [&] {
        CheckList(list);
        Require((flags & ~static_cast<ULONG>(MESSAGE_DIALOG)) == 0, MAPI_E_UNKNOWN_FLAGS);
        RequireWritable();
        return ForEachEntry(*list, [&](const SBinary& entry) {
            const ObjectId id = MessageHere(entry);
            Core().Save([&] {
                Require(Core().Storage().DeleteMessage(id), MAPI_E_NOT_FOUND);
                Core().Publish({fnevObjectDeleted, MAPI_MESSAGE, id, m_head.id, 0, 0});
            });
        });
    });
}

HRESULT CFolder::EmptyFolder(ULONG, LPMAPIPROGRESS, ULONG flags) {
    return GuardedCall(Core(), [&] {
        constexpr ULONG known = DEL_ASSOCIATED | FOLDER_DIALOG;
        Require((flags & ~known) == 0, MAPI_E_UNKNOWN_FLAGS);
        RequireWritable();
        Core().Save([&] {
            DeleteContents(Core(), m_head.id, false);
            if (flags & DEL_ASSOCIATED) DeleteContents(Core(), m_head.id, true);
            std::vector<ObjectId> children;
            Core().Storage().ScanFolders(
                m_head.id, [&](const FolderHead& head, std::string_view) { children.push_back(head.id); });
            for (const ObjectId child : children)
                if (!IsStandard(child)) DeleteTree(Core(), child);
        });
        return S_OK;
    });
}

HRESULT CFolder::SetReadFlags(LPENTRYLIST list, ULONG, LPMAPIPROGRESS, ULONG flags) {
    return GuardedCall(Core(), [&] {
        constexpr ULONG known = MESSAGE_DIALOG | SUPPRESS_RECEIPT | CLEAR_READ_FLAG | GENERATE_RECEIPT_ONLY |
                                CLEAR_RN_PENDING | CLEAR_NRN_PENDING;
        Require((flags & ~known) == 0, MAPI_E_UNKNOWN_FLAGS);
        RequireWritable();
        const auto setOne = [&](ObjectId id) {
            MessageHead head;
            Require(Core().Storage().ReadMessageHead(id, head), MAPI_E_NOT_FOUND);
            const std::uint32_t wanted = flags & CLEAR_READ_FLAG ? head.flags & ~std::uint32_t(MSGFLAG_READ)
                                                                 : head.flags | MSGFLAG_READ;
            if (wanted == head.flags) return;
            Core().Save([&] {
                Core().Storage().UpdateMessageState(id, wanted, head.status);
                Core().Publish({fnevObjectModified, MAPI_MESSAGE, id, m_head.id, 0, 0});
            });
        };
        if (list) {
            CheckList(list);
            return ForEachEntry(*list, [&](const SBinary& entry) { setOne(MessageHere(entry)); });
        }
        std::vector<ObjectId> all;
        Core().Storage().ScanMessageHeads(m_head.id, false, [&all](const MessageHead& head) {
            all.push_back(head.id);
            return true;
        });
        for (const ObjectId id : all)
            setOne(id);
        return static_cast<HRESULT>(S_OK);
    });
}

HRESULT CFolder::GetMessageStatus(ULONG cb, LPENTRYID id, ULONG flags, ULONG* status) {
    return GuardedCall(Core(), [&] {
        Require(status, MAPI_E_INVALID_PARAMETER);
        Require(flags == 0, MAPI_E_UNKNOWN_FLAGS);
        MessageHead head;
        const SBinary entry = {cb, reinterpret_cast<LPBYTE>(id)};
        Require(Core().Storage().ReadMessageHead(MessageHere(entry), head), MAPI_E_NOT_FOUND);
        *status = head.status;
        return S_OK;
    });
}

HRESULT CFolder::SetMessageStatus(ULONG cb, LPENTRYID id, ULONG status, ULONG mask, ULONG* old) {
    return GuardedCall(Core(), [&] {
        RequireWritable();
        MessageHead head;
        const SBinary entry = {cb, reinterpret_cast<LPBYTE>(id)};
        const ObjectId message = MessageHere(entry);
        Require(Core().Storage().ReadMessageHead(message, head), MAPI_E_NOT_FOUND);
        if (old) *old = head.status;
        Core().Save([&] {
            Core().Storage().UpdateMessageState(message, head.flags, (head.status & ~mask) | (status & mask));
            Core().Publish({fnevObjectModified, MAPI_MESSAGE, message, m_head.id, 0, 0});
        });
        return S_OK;
    });
}

// --- folders ---------------------------------------------------------------------------------------

HRESULT CFolder::CreateFolder(ULONG type, LPTSTR name, LPTSTR comment, LPCIID iid, ULONG flags,
                              LPMAPIFOLDER* folder) {
    return GuardedCall(Core(), [&] {
        Require(folder && name, MAPI_E_INVALID_PARAMETER);
        *folder = nullptr;
        constexpr ULONG known = OPEN_IF_EXISTS | MAPI_UNICODE | MAPI_DEFERRED_ERRORS;
        Require((flags & ~known) == 0, MAPI_E_UNKNOWN_FLAGS);
        Require(type == FOLDER_GENERIC, type == FOLDER_SEARCH ? MAPI_E_NO_SUPPORT : MAPI_E_INVALID_PARAMETER);
        Require(!iid || *iid == IID_IMAPIFolder || *iid == IID_IMAPIContainer || *iid == IID_IMAPIProp ||
                    *iid == IID_IUnknown,
                MAPI_E_INTERFACE_NOT_SUPPORTED);
        const std::string wanted = Utf8FromArgument(name, flags);
        Require(!wanted.empty(), MAPI_E_INVALID_PARAMETER);
        ObjectId id = FindChild(Core(), m_head.id, wanted);
        if (id == 0) {
            RequireWritable();
            Core().Save(
                [&] { id = MakeFolder(Core(), m_head.id, wanted, Utf8FromArgument(comment, flags)); });
        } else {
            Require((flags & OPEN_IF_EXISTS) != 0, MAPI_E_COLLISION);
        }
        *folder = Open(SharedCore(), id, IsWritable()).Detach();
        return S_OK;
    });
}

namespace {

ObjectId FolderArgument(CStoreCore& core, ULONG cb, const ENTRYID* id) {
    StoreUid uid;
    ObjectId number = 0;
    Require(ParseEntryId(cb, id, uid, number) && IsFolderId(number), MAPI_E_INVALID_ENTRYID);
    Require(uid == core.Uid(), MAPI_E_UNKNOWN_ENTRYID);
    return number;
}

// The folder must exist and lie directly below `parent`.
void RequireChild(CStoreCore& core, ObjectId folder, ObjectId parent) {
    FolderHead head;
    std::string block;
    Require(core.Storage().ReadFolder(folder, head, block) && head.parent == parent && folder != parent,
            MAPI_E_NOT_FOUND);
}

}  // namespace

HRESULT CFolder::CopyFolder(ULONG cb, LPENTRYID id, LPCIID, LPVOID target, LPTSTR name, ULONG, LPMAPIPROGRESS,
                            ULONG flags) {
    return GuardedCall([&] {
        Require(target, MAPI_E_INVALID_PARAMETER);
        constexpr ULONG known =
            FOLDER_MOVE | FOLDER_DIALOG | COPY_SUBFOLDERS | MAPI_UNICODE | MAPI_DECLINE_OK;
        Require((flags & ~known) == 0, MAPI_E_UNKNOWN_FLAGS);
        const auto own = AsOwnFolder(target);
        Require(static_cast<bool>(own), MAPI_E_NO_SUPPORT);
        CStoreCore &from = Core(), &to = own->Core();
        const CTwoStoreCall call(from, to);
        const ObjectId folder = FolderArgument(from, cb, id);
        RequireChild(from, folder, m_head.id);
        Require(own->IsWritable(), MAPI_E_NO_ACCESS);
        const bool move = (flags & FOLDER_MOVE) != 0;
        const bool deep = move || (flags & COPY_SUBFOLDERS);
        if (move) Require(IsWritable() && !IsStandard(folder), MAPI_E_NO_ACCESS);
        if (&from == &to && deep) Require(!IsWithin(to, own->Id(), folder), MAPI_E_FOLDER_CYCLE);
        std::string newName = Utf8FromArgument(name, flags);
        if (&from == &to && move) {
            from.Save([&] { MoveFolder(from, folder, own->Id(), newName); });
            return S_OK;
        }
        if (newName.empty()) newName = NameOfFolder(from, folder);
        to.Save([&] { CopyFolderTree(from, folder, to, own->Id(), newName, deep); });
        if (move) from.Save([&] { DeleteTree(from, folder); });
        return S_OK;
    });
}

HRESULT CFolder::DeleteFolder(ULONG cb, LPENTRYID id, ULONG, LPMAPIPROGRESS, ULONG flags) {
    return GuardedCall(Core(), [&] {
        constexpr ULONG known = DEL_MESSAGES | DEL_FOLDERS | FOLDER_DIALOG | DEL_ASSOCIATED;
        Require((flags & ~known) == 0, MAPI_E_UNKNOWN_FLAGS);
        RequireWritable();
        const ObjectId folder = FolderArgument(Core(), cb, id);
        RequireChild(Core(), folder, m_head.id);
        Require(!IsStandard(folder), MAPI_E_NO_ACCESS);
        Core().Save([&] {
            IObjectStorage& storage = Core().Storage();
            Require((flags & DEL_MESSAGES) || storage.CountMessages(folder, false) == 0, MAPI_E_HAS_MESSAGES);
            Require((flags & DEL_FOLDERS) || storage.CountFolders(folder) == 0, MAPI_E_HAS_FOLDERS);
            DeleteTree(Core(), folder);
        });
        return S_OK;
    });
}

// --- copying a whole folder ------------------------------------------------------------------------

namespace {

bool Wants(ULONG tag, const SPropTagArray* exclude, const SPropTagArray* include) {
    const auto id = static_cast<PropId>(PROP_ID(tag));
    return include ? NamesId(include, id) : !NamesId(exclude, id);
}

}  // namespace

void CFolder::CopyAll(const SPropTagArray* exclude, const SPropTagArray* include, IUnknown* target,
                      ULONG flags, std::vector<CopyProblem>& problems) {
    { const CStoreCall counted(Core()); }
    Require((flags & MAPI_MOVE) == 0, MAPI_E_NO_SUPPORT);
    CRef<IMAPIFolder> other;
    if (FAILED(target->QueryInterface(IID_IMAPIFolder, reinterpret_cast<void**>(other.Out()))))
        throw CStoreError(MAPI_E_INTERFACE_NOT_SUPPORTED);
    const auto own = AsOwnFolder(target);
    if (!own) {
        // Into somebody else's store messages go with CopyMessages, folder by folder.
        for (const ULONG contained :
             {PR_CONTAINER_CONTENTS, PR_FOLDER_ASSOCIATED_CONTENTS, PR_CONTAINER_HIERARCHY})
            Require(!Wants(contained, exclude, include), MAPI_E_NO_SUPPORT);
        return CopyAnyProperties(this, other.Get(), exclude, include, flags, problems);
    }
    const CTwoStoreCall call(Core(), own->Core());
    const bool isSameStore = &Core() == &own->Core();
    Require(own->IsWritable() && !(isSameStore && own->Id() == Id()), MAPI_E_NO_ACCESS);
    if (isSameStore && Wants(PR_CONTAINER_HIERARCHY, exclude, include))
        Require(!IsWithin(Core(), own->Id(), Id()), MAPI_E_FOLDER_CYCLE);
    // All of it or nothing: the properties are the first to be refused.
    own->Core().Save([&] {
        CopyAnyProperties(this, other.Get(), exclude, include, flags, problems);
        CopyContainedTo(*own, exclude, include);
    });
}

void CFolder::CopyContainedTo(CFolder& target, const SPropTagArray* exclude, const SPropTagArray* include) {
    CStoreCore &from = Core(), &to = target.Core();
    if (Wants(PR_CONTAINER_CONTENTS, exclude, include)) CopyContents(from, m_head.id, to, target.Id(), false);
    if (Wants(PR_FOLDER_ASSOCIATED_CONTENTS, exclude, include))
        CopyContents(from, m_head.id, to, target.Id(), true);
    if (Wants(PR_CONTAINER_HIERARCHY, exclude, include)) CopySubfolders(from, m_head.id, to, target.Id());
}
