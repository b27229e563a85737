#include "BenchWorld.h"

#include <chrono>
#include <random>
#include <stdexcept>

namespace {

constexpr int kNamedProperties = 12;
constexpr size_t kBodySize = 900;

void Must(HRESULT hr, const char* what) {
    if (FAILED(hr)) throw std::runtime_error(std::string(what) + ": " + ErrorName(hr));
}

std::string RandomText(std::mt19937_64& random, size_t size) {
    std::string text(size, ' ');
    for (char& c : text)
        c = static_cast<char>(random() % 7 == 0 ? ' ' : 'a' + random() % 26);
    return text;
}

std::string KeyOf(IMAPIFolder* folder) {
    const std::string folderId = BytesOf(folder, PR_ENTRYID);
    const std::string storeId = BytesOf(folder, PR_STORE_ENTRYID);
    const auto hex = [](const std::string& bytes) {
        return HexFromBinary(
            {static_cast<ULONG>(bytes.size()), reinterpret_cast<BYTE*>(const_cast<char*>(bytes.data()))});
    };
    return hex(folderId) + ":" + hex(storeId);
}

// Gathers the saves of a store while it lives.
class CGathered {
public:
    explicit CGathered(IMsgStore* store) {
        store->QueryInterface(IID_IStoreBatch, reinterpret_cast<void**>(m_batch.Out()));
        if (m_batch) Must(m_batch->BeginBatch(), "BeginBatch");
    }
    ~CGathered() {
        if (m_batch) m_batch->EndBatch();
    }
    CGathered(const CGathered&) = delete;
    CGathered& operator=(const CGathered&) = delete;

private:
    TestRef<IStoreBatch> m_batch;
};

// The values of one item. The texts live here while SetProps reads them.
class CItemValues {
public:
    CItemValues(IMAPIFolder* folder, int number, std::mt19937_64& random) {
        Text(PR_SUBJECT_A, "Item number " + std::to_string(number));
        Text(PR_MESSAGE_CLASS_A, "IPM.Note");
        Text(PR_BODY_A, RandomText(random, kBodySize));
        for (const ULONG tag :
             {PR_SENDER_NAME_A, PR_SENDER_EMAIL_ADDRESS_A, PR_SENDER_ADDRTYPE_A, PR_SENT_REPRESENTING_NAME_A,
              PR_SENT_REPRESENTING_EMAIL_ADDRESS_A, PR_CONVERSATION_TOPIC_A, PR_INTERNET_MESSAGE_ID_TAG})
            Text(tag, RandomText(random, 12 + random() % 16));
        for (const ULONG tag : {PR_IMPORTANCE, PR_SENSITIVITY, PR_PRIORITY, PR_ICON_TAG, PR_MSG_FLAGS_TAG})
            Long(tag, static_cast<LONG>(random() % 3 == 0));
        Time(PR_CLIENT_SUBMIT_TIME, random);
        Time(PR_MESSAGE_DELIVERY_TIME, random);
        Time(PR_START_DATE, random);
        for (int i = 0; i < kNamedProperties; ++i)
            Text(NamedTag(folder, L"Bench" + std::to_wstring(i), PT_STRING8), RandomText(random, 10));
    }

    void SetOn(IMessage* message) {
        for (size_t i = 0, text = 0; i < m_values.size(); ++i)
            if (PROP_TYPE(m_values[i].ulPropTag) == PT_STRING8)
                m_values[i].Value.lpszA = m_texts[text++].data();
        Must(message->SetProps(static_cast<ULONG>(m_values.size()), m_values.data(), nullptr), "SetProps");
    }

private:
    static constexpr ULONG PR_INTERNET_MESSAGE_ID_TAG = PROP_TAG(PT_STRING8, 0x1035);
    static constexpr ULONG PR_ICON_TAG = PROP_TAG(PT_LONG, 0x1080);
    static constexpr ULONG PR_MSG_FLAGS_TAG = PROP_TAG(PT_LONG, 0x1090);

    SPropValue& Add(ULONG tag) {
        m_values.push_back({});
        m_values.back().ulPropTag = tag;
        return m_values.back();
    }
    void Text(ULONG tag, std::string text) {
        Add(tag);
        m_texts.push_back(std::move(text));
    }
    void Long(ULONG tag, LONG value) { Add(tag).Value.l = value; }
    void Time(ULONG tag, std::mt19937_64& random) {
        Add(tag).Value.ft = {static_cast<DWORD>(random()),
                             30000000u + static_cast<DWORD>(random() % 1000000)};
    }

    std::vector<SPropValue> m_values;
    std::vector<std::string> m_texts;
};

}  // namespace

CBenchWorld::CBenchWorld(int count) : m_profile("Bench" + std::to_string(count)) {
    m_session = m_profile.LogOn();
    m_leftStore = OpenTestStore(m_session.Get(), "Store 1");
    m_rightStore = OpenTestStore(m_session.Get(), "Store 2");
    const auto leftRoot = OpenStoreFolder(m_leftStore.Get(), PR_IPM_SUBTREE_ENTRYID);
    const auto rightRoot = OpenStoreFolder(m_rightStore.Get(), PR_IPM_SUBTREE_ENTRYID);
    m_left = MakeFolder(leftRoot.Get(), "Left");
    m_right = MakeFolder(rightRoot.Get(), "Right");
    m_leftKey = KeyOf(m_left.Get());
    m_rightKey = KeyOf(m_right.Get());
    Fill(count);
}

void CBenchWorld::Fill(int count) {
    const CGathered gathered(m_leftStore.Get());
    std::mt19937_64 random(1);
    for (int number = 1; number <= count; ++number) {
        TestRef<IMessage> message;
        Must(m_left->CreateMessage(nullptr, 0, message.Out()), "CreateMessage");
        CItemValues(m_left.Get(), number, random).SetOn(message.Get());
        Must(message->SaveChanges(0), "SaveChanges");
    }
}

double CBenchWorld::Sync() {
    CTarnSetting setting;
    setting.m_sourceKey = m_leftKey;
    setting.m_targetKey = m_rightKey;
    setting.m_flags = SYNC_ACTIVE | SYNC_TO_TARGET | SYNC_FROM_TARGET | SYNC_DELETE_IN_TARGET;
    const auto start = std::chrono::steady_clock::now();
    CSyncFolder folder;
    CSyncProtocol protocol;
    folder.m_session = CMapiSession(m_session.Get());
    folder.m_setting = &setting;
    folder.m_protocol = &protocol;
    const int answer = folder.SyncSubFolder(m_leftKey, m_rightKey, true, true, true, false, false);
    const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
    const CSyncOutcome& outcome = folder.m_outcome;
    if (answer != 0 || outcome.pairsRun != 1 || outcome.rowsFailed != 0 || outcome.phasesFailed != 0)
        throw std::runtime_error("the run did not end cleanly");
    return seconds.count();
}

void CBenchWorld::ChangeItems(bool leftSide, int first, int step) {
    IMsgStore* store = leftSide ? m_leftStore.Get() : m_rightStore.Get();
    IMAPIFolder* folder = leftSide ? m_left.Get() : m_right.Get();
    const CGathered gathered(store);
    std::mt19937_64 random(static_cast<unsigned>(first * 1000 + step));
    const TestRows rows = ContentsOf(folder, {PR_ENTRYID});
    for (ULONG row = static_cast<ULONG>(first); row < rows.Count(); row += static_cast<ULONG>(step)) {
        const auto message = OpenTestMessage(store, rows.Bytes(row, 0));
        Must(SetText(message.Get(), PR_BODY_A, RandomText(random, kBodySize)), "body");
        Must(SetLong(message.Get(), PR_IMPORTANCE, 2), "importance");
        Must(message->SaveChanges(0), "SaveChanges");
    }
}

unsigned CBenchWorld::CountOf(IMAPIFolder* folder) {
    return static_cast<unsigned>(LongOf(folder, PR_CONTENT_COUNT));
}
