// The published entry points to messages on compound files.
#include <MapiStore/Core/StoreCall.h>
#include <MapiStore/Objects/Message.h>
#include <MapiStore/Storage/NamesOnlyStorage.h>
#include <MapiStore/Values/MapiMemory.h>
#include "MsgFormat.h"
#include "MsgReader.h"
#include "MsgWriter.h"

// What OpenIMsgSession hands out. Messages stand for themselves and outlive it.
struct _MSGSESS {
    std::uint32_t magic;
};

namespace {

constexpr std::uint32_t kSession = 0x4D534753;

bool IsWritable(IStorage& storage) {
    STATSTG stat{};
    if (FAILED(storage.Stat(&stat, STATFLAG_NONAME))) return false;
    return (stat.grfMode & (STGM_WRITE | STGM_READWRITE)) != 0;
}

// A storage that nothing lies in yet is a new message. One that holds something of which nothing is
// part of a message must not be taken for that: it would be written over.
std::shared_ptr<const MessageSnapshot> Contents(IStorage& storage, CStoreCore& core) {
    const auto message = ReadMsg(storage, core);
    const bool empty = CValueBlock(message->small).Count() == 0 && message->attachments.empty();
    if (!empty) return message;
    for (const msg::Element& element : msg::ListElements(storage)) {
        const bool ofSystem = element.name.empty() || element.name[0] < L' ';
        Require(ofSystem, MAPI_E_CORRUPT_DATA);
    }
    return message;
}

CRef<CMessage> OpenOnStorage(IStorage* storage, bool commit, std::function<void(IMessage*)> released) {
    const auto core = CStoreCore::OpenDetached(std::make_unique<CNamesOnlyStorage>());
    const CQuietCall call(*core);
    const auto contents = Contents(*storage, *core);
    const auto held = CRef<IStorage>::Share(storage);
    CStoreCore* ground = core.get();  // the message holds the core, and with it this pointer
    auto save = [held, ground, commit](const MessageSnapshot& message) {
        WriteMsg(*held, *ground, message);
        if (!commit) return;
        const HRESULT hr = held->Commit(STGC_DEFAULT);
        Require(SUCCEEDED(hr), msg::MapiCodeOf(hr));
    };
    return CMessage::OpenDetached(core, *contents, IsWritable(*storage), std::move(save),
                                  std::move(released));
}

}  // namespace

STDAPI_(SCODE) OpenIMsgSession(LPMALLOC, ULONG, LPMSGSESS* lppMsgSess) {
    if (!lppMsgSess) return MAPI_E_INVALID_PARAMETER;
    return GuardedCall([&] {
        *lppMsgSess = new _MSGSESS{kSession};
        return S_OK;
    });
}

STDAPI_(void) CloseIMsgSession(LPMSGSESS lpMsgSess) {
    if (!lpMsgSess || lpMsgSess->magic != kSession) return;
    lpMsgSess->magic = 0;
    delete lpMsgSess;
}

STDAPI_(SCODE)
OpenIMsgOnIStg(LPMSGSESS, LPALLOCATEBUFFER, LPALLOCATEMORE, LPFREEBUFFER, LPMALLOC, LPVOID, LPSTORAGE lpStg,
               MSGCALLRELEASE* lpfMsgCallRelease, ULONG ulCallerData, ULONG ulFlags, LPMESSAGE* lppMsg) {
    if (!lpStg || !lppMsg) return MAPI_E_INVALID_PARAMETER;
    *lppMsg = nullptr;
    return GuardedCall([&] {
        std::function<void(IMessage*)> released;
        if (lpfMsgCallRelease)
            released = [=](IMessage* message) { lpfMsgCallRelease(ulCallerData, message); };
        *lppMsg = OpenOnStorage(lpStg, (ulFlags & IMSG_NO_ISTG_COMMIT) == 0, std::move(released)).Detach();
        return S_OK;
    });
}

// Every property that is there can be read and written.
STDAPI GetAttribIMsgOnIStg(LPVOID lpObject, LPSPropTagArray lpPropTagArray,
                           LPSPropAttrArray* lppPropAttrArray) {
    if (!lpObject || !lpPropTagArray || !lppPropAttrArray) return MAPI_E_INVALID_PARAMETER;
    *lppPropAttrArray = nullptr;
    ULONG count = 0;
    LPSPropValue values = nullptr;
    const HRESULT hr = static_cast<IMAPIProp*>(lpObject)->GetProps(lpPropTagArray, 0, &count, &values);
    if (FAILED(hr)) return hr;
    void* block = nullptr;
    const SCODE code = AllocateRoot(CbNewSPropAttrArray(count + std::size_t{1}), &block);
    if (SUCCEEDED(code)) {
        auto* attributes = static_cast<SPropAttrArray*>(block);
        attributes->cValues = count;
        for (ULONG i = 0; i < count; ++i) {
            const bool missing =
                PROP_TYPE(values[i].ulPropTag) == PT_ERROR && values[i].Value.err == MAPI_E_NOT_FOUND;
            attributes->aPropAttr[i] =
                missing ? PROPATTR_NOT_PRESENT : PROPATTR_READABLE | PROPATTR_WRITEABLE;
        }
        *lppPropAttrArray = attributes;
    }
    MAPIFreeBuffer(values);
    return code;
}

STDAPI SetAttribIMsgOnIStg(LPVOID, LPSPropTagArray, LPSPropAttrArray, LPSPropProblemArray*) {
    return MAPI_E_NO_SUPPORT;
}

STDAPI_(SCODE) MapStorageSCode(SCODE StgSCode) {
    return msg::MapiCodeOf(StgSCode);
}
