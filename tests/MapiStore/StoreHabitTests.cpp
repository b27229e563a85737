// What a store does otherwise where it was made with a habit of another one.
#include <Platform/Clock.h>
#include <support/StoreFixture.h>

namespace {

constexpr std::uint64_t kSecond = 10'000'000;

class StoreHabits : public TwoStores {
protected:
    // New stores with these habits.
    void Take(ULONG habits) {
        CloseStores();
        for (const unsigned store : {1u, 2u})
            Profile().SetHabits(store, habits);
        OpenStores();
    }
    TestRef<IMessage> Copied(IMessage* message, ULONG flags) {
        const std::vector<std::string> ids = {BytesOf(message, PR_ENTRYID)};
        TestEntryList list(ids);
        const auto beside =
            MakeFolder(OpenStoreFolder(leftStore.Get(), PR_IPM_SUBTREE_ENTRYID).Get(), "Beside");
        EXPECT_EQ(left->CopyMessages(list.Get(), nullptr, beside.Get(), 0, nullptr, flags), S_OK);
        const TestRows rows = ContentsOf(beside.Get(), {PR_ENTRYID});
        EXPECT_EQ(rows.Count(), 1u);
        return OpenTestMessage(leftStore.Get(), rows.Bytes(0, 0));
    }
    static HRESULT SetTimeCode(IMAPIProp* object, ULONG tag) {
        SPropValue value{};
        value.ulPropTag = tag;
        value.Value.ft = FileTimeOf(kSecond);
        return HrSetOneProp(object, &value);
    }
};

TEST_F(StoreHabits, MovedItemKeepsItsEntryId) {
    Take(HABIT_MOVES_KEEP_IDS);
    auto message = SavedMessage(left.Get(), "A", "text");
    const std::string id = BytesOf(message.Get(), PR_ENTRYID);
    message.Reset();
    auto moved = Copied(OpenTestMessage(leftStore.Get(), id).Get(), MESSAGE_MOVE);
    EXPECT_EQ(BytesOf(moved.Get(), PR_ENTRYID), id);
    EXPECT_EQ(TextOf(OpenTestMessage(leftStore.Get(), id).Get(), PR_BODY_A), "text");
    EXPECT_NE(BytesOf(moved.Get(), PR_PARENT_ENTRYID), BytesOf(left.Get(), PR_ENTRYID));
    const std::vector<std::string> ids = {id};
    TestEntryList list(ids);
    EXPECT_EQ(left->DeleteMessages(list.Get(), 0, nullptr, 0), MAPI_W_PARTIAL_COMPLETION)
        << "it is not there any more";
}

TEST_F(StoreHabits, CoarseClockRepeatsItsTimes) {
    // Behind the times that the stores have given already.
    const std::uint64_t start = TicksOf(UtcNow()) / kSecond * kSecond + 1000 * kSecond;
    CClockOverride clock(FileTimeOf(start + 2345678));
    Take(HABIT_CLOCK_SECONDS);
    const auto first = SavedMessage(left.Get(), "A"), second = SavedMessage(left.Get(), "B");
    EXPECT_EQ(TicksOf(TimeOf(first.Get(), PR_LAST_MODIFICATION_TIME)), start);
    EXPECT_EQ(TicksOf(TimeOf(second.Get(), PR_LAST_MODIFICATION_TIME)), start);
    CloseStores();
    Profile().SetHabits(1, HABIT_CLOCK_MILLISECONDS);
    OpenStores();
    clock.Advance(kSecond + 99);
    EXPECT_EQ(TicksOf(TimeOf(SavedMessage(left.Get(), "C").Get(), PR_CREATION_TIME)),
              start + kSecond + 2340000);
}

TEST_F(StoreHabits, ComputedTimesAreTheStoresAlone) {
    Take(HABIT_MODIFIED_COMPUTED);
    auto message = NewMessage(left.Get(), "A");
    EXPECT_EQ(SetTimeCode(message.Get(), PR_LAST_MODIFICATION_TIME), MAPI_E_COMPUTED);
    EXPECT_EQ(SetTimeCode(message.Get(), PR_CREATION_TIME), S_OK);
    EXPECT_EQ(message->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
    EXPECT_EQ(TicksOf(TimeOf(message.Get(), PR_CREATION_TIME)), kSecond);
    EXPECT_NE(TicksOf(TimeOf(message.Get(), PR_LAST_MODIFICATION_TIME)), kSecond);
    Take(HABIT_TIMES_COMPUTED);
    EXPECT_EQ(SetTimeCode(NewMessage(left.Get(), "B").Get(), PR_CREATION_TIME), MAPI_E_COMPUTED);
}

TEST_F(StoreHabits, CopiesAndMovesAreModifications) {
    Take(HABIT_COPIES_TOUCH);
    const auto message = SavedMessage(left.Get(), "A");
    const auto copy = Copied(message.Get(), 0);
    const auto modified = TicksOf(TimeOf(message.Get(), PR_LAST_MODIFICATION_TIME));
    EXPECT_GT(TicksOf(TimeOf(copy.Get(), PR_LAST_MODIFICATION_TIME)), modified);
    EXPECT_EQ(TicksOf(TimeOf(copy.Get(), PR_CREATION_TIME)),
              TicksOf(TimeOf(message.Get(), PR_CREATION_TIME)));
}

TEST_F(StoreHabits, BodiesAreRewritten) {
    Take(HABIT_BODIES_REWRITTEN);
    const auto message = SavedMessage(left.Get(), "A", "one \t\ntwo\r\n\nthree  ");
    EXPECT_EQ(TextOf(message.Get(), PR_BODY_A), "one\r\ntwo\r\n\r\nthree");
    const std::string large(40'000, 'x');
    EXPECT_EQ(SetStream(message.Get(), PR_BODY_A, large + "  \nend"), S_OK);
    EXPECT_EQ(message->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
    EXPECT_EQ(StreamOf(message.Get(), PR_BODY_A), large + "\r\nend");
}

TEST_F(StoreHabits, NamesWithoutCaseCollide) {
    Take(HABIT_NAMES_WITHOUT_CASE);
    const auto mail = MakeFolder(left.Get(), "Mail \xC3\x84");
    EXPECT_EQ(BytesOf(MakeFolder(left.Get(), "mail \xC3\xA4").Get(), PR_ENTRYID),
              BytesOf(mail.Get(), PR_ENTRYID));
    TestRef<IMAPIFolder> other;
    EXPECT_EQ(left->CreateFolder(FOLDER_GENERIC, reinterpret_cast<LPTSTR>(const_cast<char*>("MAIL \xC3\x84")),
                                 nullptr, nullptr, 0, other.Out()),
              MAPI_E_COLLISION);
}

TEST_F(StoreHabits, TablesAnswerShort) {
    Take(HABIT_SHORT_ANSWERS);
    for (const char* name : {"A", "B", "C", "D", "E"})
        SavedMessage(left.Get(), name);
    TestRef<IMAPITable> table;
    ASSERT_EQ(left->GetContentsTable(0, table.Out()), S_OK);
    for (const ULONG expected : {3u, 2u, 0u}) {
        LPSRowSet rows = nullptr;
        ASSERT_EQ(table->QueryRows(100, 0, &rows), S_OK);
        EXPECT_EQ(rows->cRows, expected);
        FreeProws(rows);
    }
    EXPECT_EQ(ContentsOf(left.Get(), {PR_ENTRYID}).Count(), 5u) << "whoever asks again gets them all";
}

TEST_F(StoreHabits, WhatIsAbsentFits) {
    Take(HABIT_ABSENT_FITS);
    SavedMessage(left.Get(), "Without");
    const auto with = NewMessage(left.Get(), "With");
    SetLong(with.Get(), PR_IMPORTANCE, 1);
    with->SaveChanges(0);
    SPropValue two{};
    two.ulPropTag = PR_IMPORTANCE;
    two.Value.l = 2;
    SRestriction isTwo{};
    isTwo.rt = RES_PROPERTY;
    isTwo.res.resProperty = {RELOP_EQ, PR_IMPORTANCE, &two};
    TestRef<IMAPITable> table;
    ASSERT_EQ(left->GetContentsTable(0, table.Out()), S_OK);
    const TestRows rows(table.Get(), {PR_SUBJECT_A}, &isTwo);
    ASSERT_EQ(rows.Count(), 1u);
    EXPECT_EQ(rows.Text(0, 0), "Without");
}

}  // namespace
