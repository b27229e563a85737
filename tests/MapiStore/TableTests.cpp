#include <Platform/Machine.h>
#include <Platform/Utf8.h>

#include "TableFixture.h"

namespace {

using Texts = std::vector<std::string>;

TEST_F(TableFixture, RowsComeInOrderOfCreation) {
    for (const char* subject : {"b", "a", "c"})
        AddSubject(subject);
    AddSubject("elsewhere", kOutboxFolder);
    const auto table = Contents();
    EXPECT_EQ((Texts{"b", "a", "c"}), Subjects(*table));
    EXPECT_EQ(Texts{}, Subjects(*table));
    ULONG count = 0;
    EXPECT_EQ(S_OK, table->GetRowCount(0, &count));
    EXPECT_EQ(3u, count);
}

TEST_F(TableFixture, CursorMovesAsPublished) {
    for (const char* subject : {"a", "b", "c", "d"})
        AddSubject(subject);
    const auto table = Contents();
    EXPECT_EQ((Texts{"a", "b"}), Subjects(*table, 2));
    EXPECT_EQ((Texts{"c"}), Subjects(*table, 1, TBL_NOADVANCE));
    EXPECT_EQ((Texts{"c"}), Subjects(*table, 1));
    EXPECT_EQ((Texts{"b", "c"}), Subjects(*table, -2));
    ULONG row = 9, numerator = 9, denominator = 9;
    EXPECT_EQ(S_OK, table->QueryPosition(&row, &numerator, &denominator));
    EXPECT_EQ(1u, row);
    EXPECT_EQ(4u, denominator);

    LONG sought = 0;
    EXPECT_EQ(S_OK, table->SeekRow(BOOKMARK_END, -10, &sought));
    EXPECT_EQ(-4, sought);
    EXPECT_EQ(S_OK, table->SeekRow(BOOKMARK_CURRENT, 10, &sought));
    EXPECT_EQ(4, sought);
    EXPECT_EQ(S_OK, table->SeekRowApprox(1, 2));
    EXPECT_EQ((Texts{"c", "d"}), Subjects(*table));
    EXPECT_EQ(MAPI_E_INVALID_PARAMETER, table->SeekRowApprox(1, 0));
    EXPECT_EQ(MAPI_E_INVALID_BOOKMARK, table->SeekRow(77, 0, nullptr));
    EXPECT_EQ((Texts{"c", "d"}), Subjects(*table, -2));
}

TEST_F(TableFixture, BookmarkSurvivesItsRowAndSaysSo) {
    std::vector<ObjectId> ids;
    for (const char* subject : {"a", "b", "c"})
        ids.push_back(AddSubject(subject));
    const auto table = Contents();
    BOOKMARK bookmark = 0;
    EXPECT_EQ(S_OK, table->SeekRow(BOOKMARK_BEGINNING, 1, nullptr));
    EXPECT_EQ(S_OK, table->CreateBookmark(&bookmark));
    EXPECT_EQ(S_OK, table->SeekRow(BOOKMARK_END, 0, nullptr));
    EXPECT_EQ(S_OK, table->SeekRow(bookmark, 0, nullptr));
    EXPECT_EQ(Texts{"b"}, Subjects(*table, 1));
    Delete(ids[1]);
    ULONG count = 0;
    EXPECT_EQ(S_OK, table->GetRowCount(0, &count));
    EXPECT_EQ(2u, count);
    EXPECT_EQ(MAPI_W_POSITION_CHANGED, table->SeekRow(bookmark, 0, nullptr));
    EXPECT_EQ(Texts{"c"}, Subjects(*table, 1));
    EXPECT_EQ(S_OK, table->FreeBookmark(bookmark));
    EXPECT_EQ(MAPI_E_INVALID_BOOKMARK, table->FreeBookmark(bookmark));
}

TEST_F(TableFixture, WalkIsNotDisturbedByWhatItDeletes) {
    std::vector<ObjectId> ids;
    for (const char* subject : {"a", "b", "c", "d"})
        ids.push_back(AddSubject(subject));
    const auto table = Contents();
    EXPECT_EQ((Texts{"a"}), Subjects(*table, 1));
    Delete(ids[0]);
    Delete(ids[2]);
    AddSubject("e");
    EXPECT_EQ((Texts{"b"}), Subjects(*table, 1));
    EXPECT_EQ((Texts{"d"}), Subjects(*table, 2));
    EXPECT_EQ(S_OK, table->SeekRow(BOOKMARK_BEGINNING, 0, nullptr));
    EXPECT_EQ((Texts{"b", "d", "e"}), Subjects(*table));
}

TEST_F(TableFixture, SortsByManyKeysWithoutRegardToCase) {
    struct Item {
        const char* subject;
        LONG importance;
    };
    for (const Item& item : {Item{"beta", 1}, Item{"Alpha", 2}, Item{"alpha", 0},
                             Item{"\xC3\x9C"
                                  "ber",
                                  1},
                             Item{"BETA", 2}}) {
        CPropertyBag bag;
        bag.SetText(PROP_ID(PR_SUBJECT), item.subject);
        bag.SetLong(PROP_ID(PR_IMPORTANCE), static_cast<std::uint32_t>(item.importance));
        Add(bag);
    }
    CPropertyBag none;
    none.SetLong(PROP_ID(PR_IMPORTANCE), 5);
    Add(none);
    const auto table = Contents();
    CSortList order{{PR_SUBJECT_A, TABLE_SORT_ASCEND}, {PR_IMPORTANCE, TABLE_SORT_DESCEND}};
    EXPECT_EQ(S_OK, table->SortTable(order, TBL_BATCH));
    const Texts expected{"(none)", "Alpha", "alpha", "BETA", "beta", Utf8FromWide(L"\u00dcber")};
    EXPECT_EQ(expected, Subjects(*table));
    EXPECT_EQ(S_OK, table->SeekRow(BOOKMARK_BEGINNING, 2, nullptr));
    EXPECT_EQ((Texts{"alpha", "BETA"}), Subjects(*table, 2));

    SSortOrderSet* asked = nullptr;
    EXPECT_EQ(S_OK, table->QuerySortOrder(&asked));
    ASSERT_EQ(2u, asked->cSorts);
    EXPECT_EQ(TABLE_SORT_DESCEND, asked->aSort[1].ulOrder);
    MAPIFreeBuffer(asked);

    CSortList category{{PR_SUBJECT_A, TABLE_SORT_COMBINE}};
    EXPECT_EQ(MAPI_E_TOO_COMPLEX, table->SortTable(category, 0));
    EXPECT_EQ(S_OK, table->SortTable(nullptr, 0));
    EXPECT_EQ("beta", Subjects(*table, 1).at(0));
}

TEST_F(TableFixture, NumbersAndTimesSortByValue) {
    const LONG values[] = {5, -3, 0, 2000000000, -2000000000};
    for (LONG value : values) {
        CPropertyBag bag;
        bag.SetText(PROP_ID(PR_SUBJECT), std::to_string(value));
        bag.SetLong(PROP_ID(PR_PRIORITY), static_cast<std::uint32_t>(value));
        Add(bag);
    }
    const auto table = Contents();
    CSortList up{{PR_PRIORITY, TABLE_SORT_ASCEND}};
    EXPECT_EQ(S_OK, table->SortTable(up, 0));
    EXPECT_EQ((Texts{"-2000000000", "-3", "0", "5", "2000000000"}), Subjects(*table));
    CSortList newest{{PR_LAST_MODIFICATION_TIME, TABLE_SORT_DESCEND}};
    EXPECT_EQ(S_OK, table->SortTable(newest, 0));
    EXPECT_EQ((Texts{"-2000000000", "2000000000", "0", "-3", "5"}), Subjects(*table));
}

TEST_F(TableFixture, CellsAreCutAndMissingOnesAreErrors) {
    CPropertyBag bag;
    std::string text;
    for (int i = 0; i < 300; ++i)
        text += "\xC3\xA4";
    bag.SetText(PROP_ID(PR_SUBJECT), text);
    bag.SetText(PROP_ID(PR_BODY), std::string(5000, 'x'));
    bag.Set(PROP_ID(PR_SEARCH_KEY), PT_BINARY, std::string(600, 'k'));
    Add(bag);
    const auto table = Contents();
    CTagList tags{PR_SUBJECT_A,
                  PR_SUBJECT_W,
                  PR_SEARCH_KEY,
                  PR_BODY_A,
                  PR_IMPORTANCE,
                  PR_NULL,
                  CHANGE_PROP_TYPE(PR_SUBJECT, PT_LONG)};
    ASSERT_EQ(S_OK, table->SetColumns(tags, 0));
    SRowSet* rows = nullptr;
    ASSERT_EQ(S_OK, table->QueryRows(1, 0, &rows));
    RowsPtr owner(rows);
    ASSERT_EQ(1u, rows->cRows);
    const SPropValue* cells = rows->aRow[0].lpProps;
    ASSERT_EQ(PR_SUBJECT_A, cells[0].ulPropTag);
    EXPECT_EQ(Utf8FromWide(std::wstring(255, L'\u00e4')), cells[0].Value.lpszA);
    ASSERT_EQ(PR_SUBJECT_W, cells[1].ulPropTag);
    EXPECT_EQ(std::wstring(255, L'\u00e4'), cells[1].Value.lpszW);
    EXPECT_EQ(510u, cells[2].Value.bin.cb);
    ASSERT_EQ(PR_BODY_A, cells[3].ulPropTag);
    EXPECT_EQ(std::string(255, 'x'), cells[3].Value.lpszA);
    EXPECT_EQ(PROP_TAG(PT_ERROR, PROP_ID(PR_IMPORTANCE)), cells[4].ulPropTag);
    EXPECT_EQ(MAPI_E_NOT_FOUND, cells[4].Value.err);
    EXPECT_EQ(PR_NULL, cells[5].ulPropTag);
    EXPECT_EQ(PT_ERROR, PROP_TYPE(cells[6].ulPropTag));
}

TEST_F(TableFixture, FindRowSearchesBothWaysFromAnyPlace) {
    for (int i = 0; i < 600; ++i)
        AddSubject(i % 100 == 50 ? "wanted" : "other");
    const auto table = Contents();
    const auto position = [&] {
        ULONG row = 0, numerator = 0, denominator = 0;
        EXPECT_EQ(S_OK, table->QueryPosition(&row, &numerator, &denominator));
        return row;
    };
    TextRestriction wanted(PR_SUBJECT_A, RELOP_EQ, "wanted");
    EXPECT_EQ(S_OK, table->FindRow(&wanted.restriction, BOOKMARK_BEGINNING, 0));
    EXPECT_EQ(50u, position());
    EXPECT_EQ(S_OK, table->SeekRow(BOOKMARK_CURRENT, 1, nullptr));
    EXPECT_EQ(S_OK, table->FindRow(&wanted.restriction, BOOKMARK_CURRENT, 0));
    EXPECT_EQ(150u, position());
    EXPECT_EQ(S_OK, table->FindRow(&wanted.restriction, BOOKMARK_END, DIR_BACKWARD));
    EXPECT_EQ(550u, position());
    EXPECT_EQ(S_OK, table->SeekRow(BOOKMARK_CURRENT, -1, nullptr));
    EXPECT_EQ(S_OK, table->FindRow(&wanted.restriction, BOOKMARK_CURRENT, DIR_BACKWARD));
    EXPECT_EQ(450u, position());
    TextRestriction nobody(PR_SUBJECT_A, RELOP_EQ, "nobody");
    EXPECT_EQ(MAPI_E_NOT_FOUND, table->FindRow(&nobody.restriction, BOOKMARK_BEGINNING, 0));
    EXPECT_EQ(MAPI_E_INVALID_PARAMETER, table->FindRow(nullptr, BOOKMARK_BEGINNING, 0));

    CSortList order{{PR_SUBJECT_A, TABLE_SORT_ASCEND}};
    EXPECT_EQ(S_OK, table->SortTable(order, 0));
    EXPECT_EQ(S_OK, table->FindRow(&wanted.restriction, BOOKMARK_BEGINNING, 0));
    EXPECT_EQ(594u, position());
}

TEST_F(TableFixture, HierarchyShowsOneLevelOrAll) {
    CRef<IMAPITable> table;
    {
        const CQuietCall call(*core);
        OpenHierarchyTable(core, kRootFolder, 0, table.Out());
    }
    ULONG count = 0;
    EXPECT_EQ(S_OK, table->GetRowCount(0, &count));
    EXPECT_EQ(1u, count);
    {
        const CQuietCall call(*core);
        OpenHierarchyTable(core, kRootFolder, CONVENIENT_DEPTH, table.Out());
    }
    CTagList tags{PR_DISPLAY_NAME_A, PR_DEPTH};
    SRowSet* rows = nullptr;
    ASSERT_EQ(S_OK, HrQueryAllRows(table.Get(), tags, nullptr, nullptr, 0, &rows));
    RowsPtr owner(rows);
    ASSERT_EQ(kLastWellKnownFolder - 1, rows->cRows);
    EXPECT_EQ(1, rows->aRow[0].lpProps[1].Value.l);
    EXPECT_STREQ("Inbox", rows->aRow[1].lpProps[0].Value.lpszA);
    EXPECT_EQ(2, rows->aRow[1].lpProps[1].Value.l);
    EXPECT_EQ(MAPI_E_TABLE_TOO_BIG, HrQueryAllRows(table.Get(), tags, nullptr, nullptr, 5, &rows));
    EXPECT_EQ(nullptr, rows);
}

TEST_F(TableFixture, WrongCallsAreRefused) {
    const auto table = Contents();
    CTagList none{};
    EXPECT_EQ(MAPI_E_INVALID_PARAMETER, table->SetColumns(none, 0));
    EXPECT_EQ(MAPI_E_INVALID_PARAMETER, table->SetColumns(nullptr, 0));
    CTagList instances{PR_SUBJECT_A | MVI_FLAG};
    EXPECT_EQ(MAPI_E_TOO_COMPLEX, table->SetColumns(instances, 0));
    CTagList subject{PR_SUBJECT_A};
    EXPECT_EQ(MAPI_E_UNKNOWN_FLAGS, table->SetColumns(subject, 0x100));
    SRowSet* rows = nullptr;
    EXPECT_EQ(MAPI_E_INVALID_PARAMETER, table->QueryRows(0, 0, &rows));
    EXPECT_EQ(MAPI_E_INVALID_PARAMETER, table->QueryRows(1, 0, nullptr));
    EXPECT_EQ(MAPI_E_NO_SUPPORT, table->ExpandRow(0, nullptr, 0, 0, nullptr, nullptr));
}

TEST_F(TableFixture, AllColumnsListWhatTheRowsHave) {
    CPropertyBag bag;
    bag.SetText(PROP_ID(PR_SUBJECT), "x");
    bag.SetText(0x8005, "named");
    Add(bag);
    const auto table = Contents();
    SPropTagArray* tags = nullptr;
    ASSERT_EQ(S_OK, table->QueryColumns(TBL_ALL_COLUMNS, &tags));
    bool named = false, entry = false;
    for (ULONG i = 0; i < tags->cValues; ++i) {
        named = named || tags->aulPropTag[i] == PROP_TAG(PT_STRING8, 0x8005);
        entry = entry || tags->aulPropTag[i] == PR_ENTRYID;
    }
    EXPECT_TRUE(named);
    EXPECT_TRUE(entry);
    MAPIFreeBuffer(tags);
}

}  // namespace
