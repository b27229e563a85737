#include "BenchItems.h"

#include <MapiWrapper/MapiException.h>

#include <stdexcept>

namespace {

constexpr int kNamedProperties = 12;
constexpr ULONG PR_INTERNET_MESSAGE_ID_TAG = PROP_TAG(PT_STRING8, 0x1035);
constexpr ULONG PR_ICON_TAG = PROP_TAG(PT_LONG, 0x1080);
constexpr ULONG PR_MSG_FLAGS_TAG = PROP_TAG(PT_LONG, 0x1090);

}  // namespace

void Must(HRESULT hr, const char* what) {
    if (FAILED(hr)) throw std::runtime_error(std::string(what) + ": " + ErrorName(hr));
}

std::string RandomText(std::mt19937_64& random, size_t size) {
    std::string text(size, ' ');
    for (char& c : text)
        c = static_cast<char>(random() % 7 == 0 ? ' ' : 'a' + random() % 26);
    return text;
}

CGathered::CGathered(IMsgStore* store) {
    store->QueryInterface(IID_IStoreBatch, reinterpret_cast<void**>(m_batch.Out()));
    if (m_batch) Must(m_batch->BeginBatch(), "BeginBatch");
}

CGathered::~CGathered() {
    if (m_batch) m_batch->EndBatch();
}

CItemValues::CItemValues(IMAPIFolder* folder, int number, std::mt19937_64& random) {
    Text(PR_SUBJECT_A, "Item number " + std::to_string(number));
    Text(PR_MESSAGE_CLASS_A, "IPM.Note");
    Text(PR_BODY_A, RandomText(random, kBenchBodySize));
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

void CItemValues::SetOn(IMessage* message) {
    for (size_t i = 0, text = 0; i < m_values.size(); ++i)
        if (PROP_TYPE(m_values[i].ulPropTag) == PT_STRING8) m_values[i].Value.lpszA = m_texts[text++].data();
    Must(message->SetProps(static_cast<ULONG>(m_values.size()), m_values.data(), nullptr), "SetProps");
}

SPropValue& CItemValues::Add(ULONG tag) {
    m_values.push_back({});
    m_values.back().ulPropTag = tag;
    return m_values.back();
}

void CItemValues::Text(ULONG tag, std::string text) {
    Add(tag);
    m_texts.push_back(std::move(text));
}

void CItemValues::Time(ULONG tag, std::mt19937_64& random) {
    Add(tag).Value.ft = {static_cast<DWORD>(random()), 30000000u + static_cast<DWORD>(random() % 1000000)};
}

void MakeItems(IMsgStore* store, IMAPIFolder* folder, int count,
               const std::function<void(IMessage*, int)>& more) {
    const CGathered gathered(store);
    std::mt19937_64 random(1);
    for (int number = 1; number <= count; ++number) {
        TestRef<IMessage> message;
        Must(folder->CreateMessage(nullptr, 0, message.Out()), "CreateMessage");
        CItemValues(folder, number, random).SetOn(message.Get());
        if (more) more(message.Get(), number);
        Must(message->SaveChanges(0), "SaveChanges");
    }
}
