// A folder made of n copies of m items ends with m, and nothing that differs is lost.
#include "MaintenanceFixture.h"

#include <MapiWrapper/GuidText.h>
#include <Tarn/Maintenance/FieldCompare.h>

#include <fstream>

namespace {

using DuplicatesTest = MaintenanceTest;
INSTANTIATE_BOTH_WAYS(Maintenance, DuplicatesTest);

void MustSave(IMessage* message) {
    ASSERT_EQ(message->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
}

// The lists of names are what a store makes of the recipients.
LONG RecipientTypeOf(ULONG tag) {
    return tag == PR_DISPLAY_TO_A    ? MAPI_TO
           : tag == PR_DISPLAY_CC_A  ? MAPI_CC
           : tag == PR_DISPLAY_BCC_A ? MAPI_BCC
                                     : 0;
}

void AddRecipient(IMessage* item, LONG type, const std::string& name) {
    SPropValue values[2] = {};
    values[0].ulPropTag = PR_RECIPIENT_TYPE;
    values[0].Value.l = type;
    values[1].ulPropTag = PR_DISPLAY_NAME_A;
    values[1].Value.lpszA = const_cast<char*>(name.c_str());
    ADRLIST list{};
    list.cEntries = 1;
    list.aEntries[0].cValues = 2;
    list.aEntries[0].rgPropVals = values;
    EXPECT_EQ(item->ModifyRecipients(MODRECIP_ADD, &list), S_OK);
}

// Two items of one key, as a copy and its original are.
struct CTwins {
    TestRef<IMessage> first, second;

    CTwins(IMAPIFolder* folder, const std::string& messageClass, const std::string& subject) {
        const std::string key = "key of " + subject;
        for (TestRef<IMessage>* item : {&first, &second}) {
            *item = NewMessage(folder, subject, "the text");
            SetText(item->Get(), PR_MESSAGE_CLASS_A, messageClass);
            SetBytes(item->Get(), PR_SEARCH_KEY, key);
            MustSave(item->Get());
        }
    }
    static void Give(IMessage* item, const CComparedField& field, int value) {
        const std::string text = "value " + std::to_string(value);
        ULONG tag = field.tag;
        if (field.set) {
            GUID set{};
            GuidFromText(field.set, set);
            tag = NamedTag(item, set, field.id, PT_SYSTIME);
        }
        if (const LONG type = RecipientTypeOf(tag))
            AddRecipient(item, type, text);
        else if (PROP_TYPE(tag) == PT_STRING8)
            SetText(item, tag, text);
        if (PROP_TYPE(tag) == PT_LONG) SetLong(item, tag, value);
        if (PROP_TYPE(tag) == PT_SYSTIME) SetTime(item, tag, FileTimeOf(130000000000000000 + value));
        MustSave(item);
    }
};

}  // namespace

TEST_P(DuplicatesTest, ManyCopiesEndWithOneOfEachAndTheNewestStays) {
    Given(Left().Creates("A B C"), Left().CopiesWithin("A"), Left().CopiesWithin("A"),
          Left().CopiesWithin("B"), Left().RenamesNewest("A", "Newest"));
    for (int i = 0; i < 20; ++i)
        SavedMessage(Left().Folder(), "Other" + std::to_string(100 + i));
    CCountingWatch watch;
    CDuplicateOptions look;
    look.dryRun = true;
    const CDuplicateOutcome looked = Clean(Left(), look, &watch);
    EXPECT_EQ(looked.removed, 0u);
    EXPECT_EQ(Left().Discarded(), "");
    for (const unsigned row : watch.rows)
        EXPECT_EQ(row % 8, 0u);
    EXPECT_GE(watch.rows.size(), 2u);
    const CDuplicateOutcome done = Clean(Left());
    EXPECT_EQ(done.rows, 26u);
    EXPECT_EQ(done.groups, 2u);
    EXPECT_EQ(done.duplicates, looked.duplicates);
    EXPECT_EQ(done.removed, 3u);
    EXPECT_TRUE(Left().Holds("Newest"));
    EXPECT_FALSE(Left().Holds("A"));
    Still(Left().Discards("A A B"));
    IMAPIFolderPtr holding(OpenStoreFolder(Left().Store(), PR_IPM_WASTEBASKET_ENTRYID).Get());
    for (const char* name : {"Vellumware", "Duplicates", "Left"})
        holding = FindSubfolder(holding, name);
    EXPECT_EQ(ContentsOf(holding.Get(), {PR_ENTRYID}).Count(), 3u);
    const CDuplicateOutcome again = Clean(Left());
    EXPECT_EQ(again.groups + again.removed, 0u);
}

TEST_P(DuplicatesTest, ItemsWithoutASearchKeyAreNoCopies) {
    for (const char* subject : {"A", "B"}) {
        const auto item = SavedMessage(Left().Folder(), subject);
        SPropTagArray tags{1, {PR_SEARCH_KEY}};
        ASSERT_EQ(item->DeleteProps(&tags, nullptr), S_OK);
        MustSave(item.Get());
    }
    EXPECT_EQ(Clean(Left()).groups, 0u);
    std::vector<CSharedKeyItem> shared;
    EXPECT_TRUE(ListSharedKeys(Of(Left()), shared));
    EXPECT_TRUE(shared.empty());
    Still(Left().Has("A B"));
}

// In the folder that they would be moved to.
TEST_P(DuplicatesTest, WithoutAPlaceToGoToNothingGoesUnlessAskedFor) {
    Given(Both("A B"), Left().CopiesWithin("A"));
    EXPECT_EQ(Clean(Left()).removed, 1u);
    IMAPIFolderPtr holding(OpenStoreFolder(Left().Store(), PR_IPM_WASTEBASKET_ENTRYID).Get());
    for (const char* name : {"Vellumware", "Duplicates", "Left"})
        holding = FindSubfolder(holding, name);
    const CMaintainedFolder itself{IMsgStorePtr(Left().Store()), holding};
    const CTwins twins(holding.Get(), "IPM.Note", "twins");
    const auto count = [&] { return ContentsOf(holding.Get(), {PR_ENTRYID}).Count(); };
    EXPECT_EQ(count(), 3u);
    CRecordingUserInterface person;
    EXPECT_TRUE(RemoveDuplicates(itself, {}, nullptr).noHolding);
    EXPECT_EQ(person.messages.size(), 1u);
    // Nor on the other side of a pair: a run would delete the counterparts here, for good.
    Given(Right().Creates("A"), Right().CopiesWithin("A"));
    for (const CDuplicateOutcome& side : RemoveDuplicatesOfPair(Of(Right()), itself, {}, nullptr))
        EXPECT_EQ(side.removed, 0u);
    EXPECT_EQ(count(), 3u);
    CDuplicateOptions options;
    options.destroyWithoutHolding = true;
    EXPECT_EQ(RemoveDuplicates(itself, options, nullptr).removed, 1u);
    EXPECT_EQ(count(), 2u);
}

// --- both sides of a pair ---------------------------------------------------------------------------

TEST_P(DuplicatesTest, CounterpartsStayTogetherWhicheverSideIsNewer) {
    WithEachHabit([this] {
        Given(Both("A B C"), Synced(), Source().CopiesWithin("A"), Synced(),
              Source().RenamesNewest("A", "A2"), Synced());
        StorySide& older = GetParam() ? Source() : Target();
        StorySide& newer = GetParam() ? Target() : Source();
        NextMoment();
        When(older.Changes("A", "older"));
        NextMoment();
        When(newer.Changes("A2", "newer"));
        const auto done = CleanPair();
        EXPECT_EQ(done[0].removed + done[1].removed, 2u);
        Still(Both("A2 B C"));
        Run();
        Still(Both("A2 B C"));
        EXPECT_EQ(outcome.sourceChanged + outcome.targetChanged, 1u) << "the newer text";
        EXPECT_EQ(Left().BodyOf("A2").substr(0, 5), "newer");
        EXPECT_EQ(Right().BodyOf("A2").substr(0, 5), "newer");
        ExpectNothingMoves();
    });
}

// What a run wrote last is another copy on either side, so each side has another newest one.
TEST_P(DuplicatesTest, CleaningOneSideAfterTheOtherLeavesLinkedItems) {
    for (const bool bothAtLast : {false, true}) {
        WithEachHabit([this, bothAtLast] {
            Given(Both("A B C"), Synced(), Source().CopiesWithin("A"), Synced(),
                  Source().RenamesNewest("A", "A2"), Synced());
            NextMoment();
            Given(Source().Changes("A", "first"), Target().Changes("A2", "second"), Synced());
            NextMoment();
            const CMaintainedFolder source = Of(Source()), target = Of(Target());
            EXPECT_EQ(RemoveDuplicates(source, {}, nullptr, {target}).removed, 1u);
            if (bothAtLast)
                EXPECT_EQ(RemoveDuplicatesOfPair(source, target, {}, nullptr)[1].removed, 1u);
            else
                EXPECT_EQ(RemoveDuplicates(target, {}, nullptr, {source}).removed, 1u);
            const std::string kept = Source().Items();
            Run();
            EXPECT_EQ(Source().Items(), kept);
            EXPECT_EQ(Target().Items(), kept);
            ExpectNothingMoves();
        });
        StartOver();
    }
}

TEST_P(DuplicatesTest, CopiesOnOneSideOrWithoutLinksEndOnceOnBoth) {
    WithEachHabit([this] {
        Given(Both("A B C"), Synced());
        When(Source().CopiesWithin("A"), Source().CopiesWithin("A"), Target().CopiesWithin("B"),
             Left().CopiesTo(Right(), "C"));
        NextMoment();
        CleanPair();
        Still(Both("A B C"));
        Run();
        Still(Both("A B C"));
        ExpectNothingMoves();
    });
}

// --- field compare ----------------------------------------------------------------------------------

TEST_P(DuplicatesTest, FieldCompareLeavesWhatDiffersInAnyComparedField) {
    const char* const classes[] = {"IPM.Appointment.Ours", "IPM.Note", "IPM.Post", "IPM.Task", "IPM.Contact"};
    unsigned different = 0, same = 0;
    for (const char* messageClass : classes) {
        const CComparedFields fields = FieldsOfClass(messageClass);
        for (size_t i = 0; i < fields.count; ++i) {
            const std::string name = std::string(messageClass) + "." + std::to_string(i);
            CTwins unlike(Left().Folder(), messageClass, "unlike." + name);
            CTwins::Give(unlike.first.Get(), fields.fields[i], 1);
            CTwins::Give(unlike.second.Get(), fields.fields[i], 2);
            CTwins alike(Left().Folder(), messageClass, "alike." + name);
            CTwins::Give(alike.first.Get(), fields.fields[i], 1);
            CTwins::Give(alike.second.Get(), fields.fields[i], 1);
            ++different, ++same;
        }
    }
    EXPECT_GE(different, 40u);
    const std::string longText(100000, 'x');
    for (const char* ending : {" \r\n\t", "y"}) {
        CTwins twins(Left().Folder(), "IPM.Note", ending[0] == 'y' ? "longer" : "long");
        SetStream(twins.first.Get(), PR_BODY_A, longText);
        SetStream(twins.second.Get(), PR_BODY_A, longText + ending);
        MustSave(twins.first.Get());
        MustSave(twins.second.Get());
        ++(ending[0] == 'y' ? different : same);
    }
    // What only one of them has tells nothing; items of other classes are never the same.
    CTwins half(Left().Folder(), "IPM.Contact", "half");
    SetText(half.first.Get(), PR_SURNAME_A, "Shaw");
    MustSave(half.first.Get());
    ++same;
    CTwins sticky(Left().Folder(), "IPM.StickyNote", "sticky");
    ++different;

    CDuplicateOptions options;
    options.fieldCompare = true;
    options.logFile = DuplicateLogBeside(JoinPath(DataDirectory(), "program.dll"));
    EXPECT_TRUE(options.logFile.ends_with("program_delete.log"));
    const CDuplicateOutcome done = Clean(Left(), options);
    EXPECT_EQ(done.different, different);
    EXPECT_EQ(done.removed, same);
    EXPECT_EQ(done.failed, 0u);
    EXPECT_EQ(Left().Discarded().find("unlike"), std::string::npos) << Left().Discarded();
    std::ifstream log(options.logFile);
    unsigned lines = 0;
    for (std::string line; std::getline(log, line); ++lines)
        EXPECT_EQ(line.substr(0, 10), "Deleting \"") << line;
    EXPECT_EQ(lines, same);
    EXPECT_EQ(Clean(Left(), options).removed, 0u);
    EXPECT_EQ(Clean(Left()).removed, different) << "all of them share a key";
}
