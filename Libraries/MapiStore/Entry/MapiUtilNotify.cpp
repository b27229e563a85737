// The published utilities on notifications: copies of them, and advise sinks made of a function or bound
// to a thread.
#include <MapiStore/Core/Notifier.h>
#include <MapiStore/Core/StoreCall.h>
#include <MapiStore/Values/MapiMemory.h>
#include <MapiStore/Values/UnknownImpl.h>

#include <cstring>
#include <cwchar>
#include <map>
#include <mutex>
#include <thread>

namespace {

// Lays pieces one behind the other; without a place it only counts.
class CLayout {
public:
    explicit CLayout(void* place) : m_place(static_cast<char*>(place)) {}

    std::size_t Used() const { return m_used; }

    // A copy of `cb` bytes, or null where there is nothing to copy or no place.
    void* Put(const void* bytes, std::size_t cb) {
        if (!bytes) return nullptr;
        void* copy = Skip(cb);
        if (copy) std::memcpy(copy, bytes, cb);
        return copy;
    }
    template <class T>
    void Copy(T*& pointer, std::size_t cb) {
        pointer = static_cast<T*>(Put(pointer, cb));
    }
    void CopyText(LPTSTR& text) {
        if (text) Copy(text, std::strlen(text) + 1);
    }
    void CopyProps(LPSPropValue& values, ULONG count) {
        if (!values || count == 0) {
            values = nullptr;
            return;
        }
        ULONG cb = 0;
        Require(SUCCEEDED(ScCountProps(static_cast<int>(count), values, &cb)), MAPI_E_INVALID_PARAMETER);
        void* copy = Skip(cb);
        if (copy) ScCopyProps(static_cast<int>(count), values, copy, nullptr);
        values = static_cast<LPSPropValue>(copy);
    }
    // What a value that stands in a structure points to.
    void CopyBehind(SPropValue& value) {
        LPSPropValue copy = &value;
        CopyProps(copy, 1);
        if (copy) value = *copy;
    }

private:
    void* Skip(std::size_t cb) {
        void* here = m_place ? m_place + m_used : nullptr;
        m_used += (cb + 7) & ~std::size_t{7};
        return here;
    }

    char* m_place;
    std::size_t m_used = 0;
};

bool HasValue(const SPropValue& value) {
    return value.ulPropTag != 0 && PROP_TYPE(value.ulPropTag) != PT_NULL;
}

void CopyTable(TABLE_NOTIFICATION& table, CLayout& layout) {
    if (HasValue(table.propIndex)) layout.CopyBehind(table.propIndex);
    if (HasValue(table.propPrior)) layout.CopyBehind(table.propPrior);
    layout.CopyProps(table.row.lpProps, table.row.cValues);
}

void CopyObject(OBJECT_NOTIFICATION& object, CLayout& layout) {
    layout.Copy(object.lpEntryID, object.cbEntryID);
    layout.Copy(object.lpParentID, object.cbParentID);
    layout.Copy(object.lpOldID, object.cbOldID);
    layout.Copy(object.lpOldParentID, object.cbOldParentID);
    if (object.lpPropTagArray)
        layout.Copy(object.lpPropTagArray, CbNewSPropTagArray(object.lpPropTagArray->cValues));
}

void CopyError(ERROR_NOTIFICATION& error, CLayout& layout) {
    layout.Copy(error.lpEntryID, error.cbEntryID);
    if (!error.lpMAPIError) return;
    MAPIERROR inner = *error.lpMAPIError;
    layout.CopyText(inner.lpszError);
    layout.CopyText(inner.lpszComponent);
    error.lpMAPIError = static_cast<LPMAPIERROR>(layout.Put(&inner, sizeof inner));
}

void CopyBehind(NOTIFICATION& notification, CLayout& layout) {
    auto& info = notification.info;
    switch (notification.ulEventType) {
        case fnevTableModified:
            return CopyTable(info.tab, layout);
        case fnevCriticalError:
            return CopyError(info.err, layout);
        case fnevNewMail:
            layout.Copy(info.newmail.lpEntryID, info.newmail.cbEntryID);
            layout.Copy(info.newmail.lpParentID, info.newmail.cbParentID);
            return layout.CopyText(info.newmail.lpszMessageClass);
        case fnevStatusObjectModified:
            layout.Copy(info.statobj.lpEntryID, info.statobj.cbEntryID);
            return layout.CopyProps(info.statobj.lpPropVals, info.statobj.cValues);
        case fnevExtended:
            return layout.Copy(info.ext.pbEventParameters, info.ext.cb);
        default:
            return CopyObject(info.obj, layout);
    }
}

// The notifications with all they point to, in one block at `place`; answers its size.
std::size_t CopyAll(ULONG count, const NOTIFICATION* from, void* place) {
    CLayout layout(place);
    auto* copies = static_cast<NOTIFICATION*>(layout.Put(from, count * sizeof(NOTIFICATION)));
    for (ULONG i = 0; i < count; ++i) {
        NOTIFICATION one = from[i];
        CopyBehind(one, layout);
        if (copies) copies[i] = one;
    }
    return layout.Used();
}

// --- sinks ------------------------------------------------------------------------------------------

class CSinkBase : public CUnknownImpl<IMAPIAdviseSink> {
protected:
    void* FindInterface(REFIID riid) override {
        const bool known = IsEqualGUID(riid, IID_IUnknown) || IsEqualGUID(riid, IID_IMAPIAdviseSink);
        return known ? static_cast<IMAPIAdviseSink*>(this) : nullptr;
    }
};

class CFunctionSink final : public CSinkBase {
public:
    CFunctionSink(LPNOTIFCALLBACK function, LPVOID context) : m_function(function), m_context(context) {}
    ULONG STDMETHODCALLTYPE OnNotify(ULONG count, LPNOTIFICATION notifications) override {
        return static_cast<ULONG>(m_function(m_context, count, notifications));
    }

private:
    const LPNOTIFCALLBACK m_function;
    LPVOID const m_context;
};

// What waits for a thread until that thread asks for it.
struct Waiting {
    CRef<IMAPIAdviseSink> sink;
    ULONG count;
    std::unique_ptr<char[]> block;
};
class CThreadQueues {
public:
    void Add(std::thread::id thread, Waiting waiting) {
        const std::lock_guard lock(m_mutex);
        m_queues[thread].push_back(std::move(waiting));
    }
    std::vector<Waiting> Take(std::thread::id thread) {
        const std::lock_guard lock(m_mutex);
        const auto found = m_queues.find(thread);
        if (found == m_queues.end()) return {};
        auto taken = std::move(found->second);
        m_queues.erase(found);
        return taken;
    }

private:
    std::mutex m_mutex;
    std::map<std::thread::id, std::vector<Waiting>> m_queues;
};
CThreadQueues& TheQueues() {
    static auto* queues = new CThreadQueues;  // the notifier's thread may outlast the statics
    return *queues;
}

class CThreadSink final : public CSinkBase {
public:
    explicit CThreadSink(IMAPIAdviseSink* inner) : m_inner(CRef<IMAPIAdviseSink>::Share(inner)) {}
    ULONG STDMETHODCALLTYPE OnNotify(ULONG count, LPNOTIFICATION notifications) override {
        GuardedCall([&] {
            auto block = std::make_unique<char[]>(CopyAll(count, notifications, nullptr));
            CopyAll(count, notifications, block.get());
            TheQueues().Add(m_thread, {m_inner, count, std::move(block)});
            return S_OK;
        });
        return 0;
    }

private:
    const CRef<IMAPIAdviseSink> m_inner;
    const std::thread::id m_thread = std::this_thread::get_id();
};

}  // namespace

STDAPI_(SCODE) ScCountNotifications(int cNotifications, LPNOTIFICATION lpNotifications, ULONG* lpcb) {
    if (cNotifications <= 0 || !lpNotifications || !lpcb) return MAPI_E_INVALID_PARAMETER;
    return GuardedCall([&] {
        *lpcb = static_cast<ULONG>(CopyAll(static_cast<ULONG>(cNotifications), lpNotifications, nullptr));
        return S_OK;
    });
}

STDAPI_(SCODE)
ScCopyNotifications(int cNotification, LPNOTIFICATION lpNotifications, LPVOID lpvDst, ULONG* lpcb) {
    if (cNotification <= 0 || !lpNotifications || !lpvDst) return MAPI_E_INVALID_PARAMETER;
    return GuardedCall([&] {
        const std::size_t cb = CopyAll(static_cast<ULONG>(cNotification), lpNotifications, lpvDst);
        if (lpcb) *lpcb = static_cast<ULONG>(cb);
        return S_OK;
    });
}

STDAPI HrAllocAdviseSink(LPNOTIFCALLBACK lpfnCallback, LPVOID lpvContext, LPMAPIADVISESINK* lppAdviseSink) {
    if (!lpfnCallback || !lppAdviseSink) return MAPI_E_INVALID_PARAMETER;
    return GuardedCall([&] {
        *lppAdviseSink = new CFunctionSink(lpfnCallback, lpvContext);
        return S_OK;
    });
}

STDAPI HrThisThreadAdviseSink(LPMAPIADVISESINK lpAdviseSink, LPMAPIADVISESINK* lppAdviseSink) {
    if (!lpAdviseSink || !lppAdviseSink) return MAPI_E_INVALID_PARAMETER;
    return GuardedCall([&] {
        *lppAdviseSink = new CThreadSink(lpAdviseSink);
        return S_OK;
    });
}

STDAPI HrDispatchNotifications(ULONG) {
    return GuardedCall([] {
        DispatchNotifications();
        for (Waiting& waiting : TheQueues().Take(std::this_thread::get_id()))
            waiting.sink->OnNotify(waiting.count, reinterpret_cast<LPNOTIFICATION>(waiting.block.get()));
        return S_OK;
    });
}
