#include "QueryWorld.h"

#include <chrono>
#include <stdexcept>

#include "BenchItems.h"

namespace {

constexpr int kOneIn = 100;
constexpr char kSubject[] = "ITEM NUMBER 77";
constexpr char kSubjectFound[] = "Item number 77";
constexpr char kCategory[] = "Wanted";
constexpr char kNamedText[] = "the one in a hundred";

void SetWords(IMessage* message, ULONG tag, std::vector<std::string> words) {
    std::vector<LPSTR> pointers;
    for (std::string& word : words)
        pointers.push_back(word.data());
    SPropValue value{};
    value.ulPropTag = tag;
    value.Value.MVszA = {static_cast<ULONG>(pointers.size()), pointers.data()};
    Must(message->SetProps(1, &value, nullptr), "SetProps");
}

}  // namespace

CQueryWorld::CQueryWorld(int count) : m_count(count), m_profile("Query" + std::to_string(count), 1) {
    Open();
    MakeItems(m_store.Get(), m_folder.Get(), count, [this](IMessage* message, int number) {
        const bool wanted = number % kOneIn == 0;
        const std::string own = "Group " + std::to_string(number % 10);
        SetWords(message, m_categories, wanted ? std::vector<std::string>{own, kCategory} : std::vector{own});
        Must(SetText(message, m_named, wanted ? kNamedText : own), "named property");
        if (("Item number " + std::to_string(number)).starts_with(kSubjectFound)) ++m_bySubject;
    });
    // The log of what was written is taken into the file when the last one leaves, not under a question.
    m_folder.Reset();
    m_store.Reset();
    m_session.Reset();
    Open();
}

void CQueryWorld::Open() {
    m_session = m_profile.LogOn();
    m_store = OpenTestStore(m_session.Get(), "Store 1");
    m_folder = MakeFolder(OpenStoreFolder(m_store.Get(), PR_IPM_SUBTREE_ENTRYID).Get(), "Queries");
    m_categories = NamedTag(m_folder.Get(), L"Keywords", PT_MV_STRING8);
    m_named = NamedTag(m_folder.Get(), L"Question", PT_STRING8);
}

double CQueryWorld::Ask(SRestriction* restriction, ULONG rows) {
    const auto start = std::chrono::steady_clock::now();
    TestRef<IMAPITable> table;
    Must(m_folder->GetContentsTable(0, table.Out()), "GetContentsTable");
    const TestRows answer(table.Get(), {PR_ENTRYID, PR_SUBJECT_A, PR_LAST_MODIFICATION_TIME}, restriction);
    const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
    if (answer.Count() != rows) throw std::runtime_error("a query found other items than it must");
    return seconds.count();
}

double CQueryWorld::AskText(ULONG tag, ULONG fuzzyLevel, std::string text, ULONG rows) {
    SPropValue value{};
    value.ulPropTag = tag & ~static_cast<ULONG>(MV_FLAG);
    value.Value.lpszA = text.data();
    SRestriction restriction{};
    restriction.rt = RES_CONTENT;
    restriction.res.resContent = {fuzzyLevel, tag, &value};
    return Ask(&restriction, rows);
}

double CQueryWorld::AskCreated() {
    const TestRows last = ContentsOf(m_folder.Get(), {PR_CREATION_TIME});
    const ULONG wanted = static_cast<ULONG>(m_count / kOneIn);
    SPropValue value = last.Cell(last.Count() - wanted, 0);
    SRestriction restriction{};
    restriction.rt = RES_PROPERTY;
    restriction.res.resProperty = {RELOP_GE, PR_CREATION_TIME, &value};
    return Ask(&restriction, wanted);
}

std::vector<CQueryWorld::Query> CQueryWorld::Queries() {
    const auto wanted = static_cast<ULONG>(m_count / kOneIn);
    const auto byWord = [this, wanted](ULONG tag, const char* text, ULONG fuzzyLevel) {
        return [=, this] { return AskText(tag, fuzzyLevel, text, wanted); };
    };
    const auto bySubject = [this] {
        return AskText(PR_SUBJECT_A, FL_PREFIX | FL_IGNORECASE, kSubject, m_bySubject);
    };
    const auto within = [this] {
        return AskText(PR_SUBJECT_A, FL_SUBSTRING | FL_IGNORECASE, kSubject, m_bySubject);
    };
    const auto byCategory = byWord(m_categories, kCategory, FL_FULLSTRING);
    const auto byCreation = [this] { return AskCreated(); };
    const auto byName = byWord(m_named, kNamedText, FL_FULLSTRING);
    return {{"all rows", 2, false, [this] { return Ask(nullptr, static_cast<ULONG>(m_count)); }},
            {"subject within", 2, false, within},
            {"subject prefix, at first", 2, true, bySubject},
            {"subject prefix", 0.1, false, bySubject},
            {"category, at first", 2, true, byCategory},
            {"category", 0.1, false, byCategory},
            {"creation time, at first", 2, true, byCreation},
            {"creation time", 0.1, false, byCreation},
            {"named property, at first", 2, true, byName},
            {"named property", 0.1, false, byName}};
}
