// Messages on compound files: opened, read whole, copied into a new one and saved.
#include "MemoryFile.h"

namespace {

constexpr int kDeepest = 40;

void ReadAll(IMessage& message, int depth);

void ReadProps(IMAPIProp& object) {
    ULONG count = 0;
    LPSPropValue values = nullptr;
    object.GetProps(nullptr, MAPI_UNICODE, &count, &values);
    MAPIFreeBuffer(values);
}

void ReadTable(IMAPITable* table) {
    SRowSet* rows = nullptr;
    HrQueryAllRows(table, nullptr, nullptr, nullptr, 0, &rows);
    FreeProws(rows);
}

void ReadAttachment(IMessage& message, ULONG number, int depth) {
    CRef<IAttach> attach;
    if (FAILED(message.OpenAttach(number, nullptr, 0, attach.Out()))) return;
    ReadProps(*attach);
    CRef<IUnknown> embedded;
    if (depth < kDeepest &&
        SUCCEEDED(attach->OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IMessage, 0, 0, embedded.Out())))
        ReadAll(*static_cast<IMessage*>(embedded.Get()), depth + 1);
}

void ReadAll(IMessage& message, int depth) {
    ReadProps(message);
    CRef<IMAPITable> recipients, attachments;
    if (SUCCEEDED(message.GetRecipientTable(0, recipients.Out()))) ReadTable(recipients.Get());
    if (FAILED(message.GetAttachmentTable(0, attachments.Out()))) return;
    ReadTable(attachments.Get());
    ULONG count = 0;
    attachments->GetRowCount(0, &count);
    for (ULONG i = 0; i < count; ++i)
        ReadAttachment(message, i, depth);
}

CRef<IMessage> OpenOn(IStorage* storage) {
    CRef<IMessage> message;
    OpenIMsgOnIStg(nullptr, MAPIAllocateBuffer, MAPIAllocateMore, MAPIFreeBuffer, MAPIGetDefaultMalloc(),
                   nullptr, storage, nullptr, 0, 0, message.Out());
    return message;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const CRef<IStorage> storage = StorageOf(data, size);
    if (!storage) return 0;
    const CRef<IMessage> message = OpenOn(storage.Get());
    if (!message) return 0;
    ReadAll(*message, 0);
    WINBOOL updated = FALSE;
    RTFSync(message.Get(), RTF_SYNC_RTF_CHANGED, &updated);

    CRef<ILockBytes> bytes;
    CRef<IStorage> target;
    CreateILockBytesOnHGlobal(nullptr, TRUE, bytes.Out());
    StgCreateDocfileOnILockBytes(bytes.Get(), STGM_CREATE | STGM_READWRITE | STGM_SHARE_EXCLUSIVE, 0,
                                 target.Out());
    const CRef<IMessage> copy = OpenOn(target.Get());
    message->CopyTo(0, nullptr, nullptr, 0, nullptr, &IID_IMessage, copy.Get(), 0, nullptr);
    copy->SaveChanges(0);
    return 0;
}
