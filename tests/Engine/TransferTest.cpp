#include "CopyFixture.h"

#include <Tarn/Engine/ItemTransfer.h>

namespace {
class TransferTest : public CopyFixture {
protected:
    void Mark(const TestRef<IMessage>& message) {
        SetLong(message.Get(), NamedTag(message.Get(), L"TarnPriv", PT_LONG), 1);
    }
    static std::string LocationOf(const TestRef<IMessage>& message) {
        return TextOf(message.Get(), NamedTag(message.Get(), AppointmentProps, 0x8208, PT_STRING8));
    }
    // A private appointment on the left and its anonymised copy on the right.
    void CopyPrivate() {
        Flags(SYNC_TO_TARGET | SYNC_FROM_TARGET | SYNC_STRIP_PRIVATE);
        SavedAppointment(left, "Doctor", 2);
        CopyRight({{"Doctor", STATE_NEW}});
    }
    std::string LabelSubject() const { return "[Anna] " + LoadText(TEXT_PRIVATE_LABEL); }
};

TEST_F(TransferTest, PrivateAppointmentGoesAcrossWithoutItsText) {
    CopyPrivate();
    const auto target = OpenOnly(right);
    EXPECT_EQ(TextOf(target.Get(), PR_SUBJECT_A), LabelSubject());
    EXPECT_EQ(StreamOf(target.Get(), PR_BODY_A).find("Doctor"), std::string::npos);
    EXPECT_EQ(LocationOf(target), "");
    EXPECT_TRUE(IsMarked(target));
    IMessagePtr wrapper(target.Get());
    EXPECT_TRUE(Engine().IsMarkedPrivate(wrapper));
}

TEST_F(TransferTest, PrivateRoundTripMovesTheTimeAndKeepsTheText) {
    CopyPrivate();
    const FILETIME moved = {0x1000, 0x01D90000};
    auto target = OpenOnly(right);
    SetTime(target.Get(), NamedTag(target.Get(), AppointmentProps, 0x820D, PT_SYSTIME), moved);
    Save(target);
    target.Reset();
    CopyLeft({{LabelSubject(), STATE_MODIFIED}});

    const auto source = OpenOnly(left);
    EXPECT_EQ(CompareFileTimes(
                  TimeOf(source.Get(), NamedTag(source.Get(), AppointmentProps, 0x820D, PT_SYSTIME)), moved),
              0);
    EXPECT_EQ(TextOf(source.Get(), PR_SUBJECT_A), "Doctor");
    EXPECT_EQ(StreamOf(source.Get(), PR_BODY_A), "Body of Doctor");
    EXPECT_FALSE(IsMarked(source));
    EXPECT_EQ(LongOf(source.Get(), PR_SENSITIVITY), 2);
}

// Found by its key instead of by its ID, the original also keeps what only this way looks after.
TEST_F(TransferTest, PrivateCopyWithoutALinkKeepsTextAndLocation) {
    CopyPrivate();
    for (const auto* folder : {&left, &right}) {
        const auto item = OpenOnly(*folder);
        SizedSPropTagArray(2, tags) = {
            2, {NamedTag(item.Get(), L"LarchID", PT_STRING8), NamedTag(item.Get(), L"LarchEid", PT_BINARY)}};
        ASSERT_EQ(item->DeleteProps(reinterpret_cast<SPropTagArray*>(&tags), nullptr), S_OK);
        Save(item);
    }
    CopyLeft({{LabelSubject(), STATE_NEW}});
    const auto source = OpenOnly(left);
    EXPECT_EQ(TextOf(source.Get(), PR_SUBJECT_A), "Doctor");
    EXPECT_EQ(StreamOf(source.Get(), PR_BODY_A), "Body of Doctor");
    EXPECT_EQ(LocationOf(source), "Room 4");
    EXPECT_FALSE(IsMarked(source));
}

TEST_F(TransferTest, PrivateRoundTripKeepsRtf) {
    Flags(SYNC_TO_TARGET | SYNC_FROM_TARGET | SYNC_STRIP_PRIVATE);
    const auto message = SavedAppointment(left, "Doctor", 2);
    IMessagePtr(message.Get()).SetRtf("{\\rtf1\\ansi \\b Bold\\b0  words}", true);
    Save(message);
    CopyRight({{"Doctor", STATE_NEW}});
    CopyLeft({{LabelSubject(), STATE_MODIFIED}});
    const auto source = OpenOnly(left);
    const std::string rtf = IMessagePtr(source.Get()).GetRtf();
    EXPECT_NE(rtf.find("Bold"), std::string::npos) << rtf;
    EXPECT_NE(rtf.find("\\b"), std::string::npos) << rtf;
}

// Whichever call fails while the original is rewritten, its text is the person's afterwards.
TEST_F(TransferTest, NoFailingCallCostsThePrivateText) {
    CopyPrivate();
    const CMapiRowSet leftRows = Rows(left);
    const CMapiRowSet rightRows = Rows(right);
    CSyncFileMap unused;
    const auto faults = Faults(leftStore);
    ULONG n = 1;
    for (bool reached = true; reached && !HasFailure(); ++n) {
        SCOPED_TRACE(n);
        CSyncMessages list;
        list.Add(Record(rightRows, {LabelSubject(), STATE_MODIFIED}));
        faults->SetFault(n, MAPI_E_NETWORK_ERROR, FALSE);
        Engine().CopyModifiedElements(list, Folder(right), Folder(left), rightRows, leftRows, unused,
                                      Store(rightStore), Store(leftStore), "From", "To");
        reached = faults->CallCount() >= n;
        faults->SetFault(0, S_OK, FALSE);
        const auto source = OpenOnly(left);
        EXPECT_EQ(TextOf(source.Get(), PR_SUBJECT_A), "Doctor");
        EXPECT_EQ(StreamOf(source.Get(), PR_BODY_A), "Body of Doctor");
    }
    EXPECT_GT(n, 15u);
}

// A mark that cannot be read is not an absent one.
TEST_F(TransferTest, AnUnreadableMarkThrows) {
    auto message = SavedMessage(right.Get(), "A");
    Mark(message);
    Save(message);
    IMessagePtr wrapper(message.Get());
    ASSERT_TRUE(Engine().IsMarkedPrivate(wrapper));
    const auto faults = Faults(rightStore);
    unsigned throws = 0;
    for (ULONG n = 1; n <= 2; ++n) {
        faults->SetFault(n, MAPI_E_NETWORK_ERROR, FALSE);
        try {
            EXPECT_TRUE(Engine().IsMarkedPrivate(wrapper));
        } catch (const CMAPIException& e) {
            EXPECT_EQ(e.Hr(), MAPI_E_NETWORK_ERROR);
            ++throws;
        }
        faults->SetFault(0, S_OK, FALSE);
    }
    EXPECT_GT(throws, 0u);
}

// An edit must not show what the new copy did not.
TEST_F(TransferTest, PersonalAppointmentIsStrippedWhenNewAndWhenRewritten) {
    Flags(SYNC_TO_TARGET | SYNC_FROM_TARGET | SYNC_STRIP_PRIVATE);
    SavedAppointment(left, "Gym", 1);
    for (const LONG state : {STATE_NEW, STATE_MODIFIED}) {
        CopyRight({{"Gym", state}});
        EXPECT_EQ(TextOf(OpenOnly(right).Get(), PR_SUBJECT_A), "");
        EXPECT_EQ(StreamOf(OpenOnly(right).Get(), PR_BODY_A), "");
    }
}

// What was taken out of a copy is never missed in the original, however private that is.
TEST_F(TransferTest, NoStrippedCopyTakesAnythingFromItsOriginal) {
    for (const LONG sensitivity : {1, 2, 3})
        for (const ULONG renew : {ULONG{0}, ULONG{SYNC_ALWAYS_RENEW}}) {
            SCOPED_TRACE(FormatText("%d %x", static_cast<int>(sensitivity), static_cast<unsigned>(renew)));
            Flags(SYNC_TO_TARGET | SYNC_FROM_TARGET | SYNC_STRIP_PRIVATE | renew);
            const auto original = SavedAppointment(left, "Gym", sensitivity);
            Attach(original, "plan.txt", "legs");
            AddRecipient(original, "Bob");
            Save(original);
            CopyRight({{"Gym", STATE_NEW}});
            const auto copy = OpenOnly(right);
            EXPECT_TRUE(IsMarked(copy));
            EXPECT_EQ(AttachmentsOf(copy) + RecipientsOf(copy), 0u);
            SetLong(copy.Get(), NamedTag(copy.Get(), AppointmentProps, 0x8205, PT_LONG), 3);
            // Whoever has the copy neither writes into the original nor shows it to others.
            SetText(copy.Get(), PR_SUBJECT_A, "mine");
            SetLong(copy.Get(), PR_SENSITIVITY, 0);
            Save(copy);
            CopyLeft({{"mine", STATE_MODIFIED}});
            const auto after = OpenOnly(left);
            EXPECT_EQ(LongOf(after.Get(), NamedTag(after.Get(), AppointmentProps, 0x8205, PT_LONG)), 3);
            EXPECT_EQ(TextOf(after.Get(), PR_SUBJECT_A), "Gym");
            EXPECT_EQ(StreamOf(after.Get(), PR_BODY_A), "Body of Gym");
            EXPECT_EQ(TextOf(after.Get(), PR_DISPLAY_NAME_A), "");
            EXPECT_EQ(LocationOf(after), "Room 4");
            EXPECT_EQ(AttachmentsOf(after) * 10 + RecipientsOf(after), 11u);
            EXPECT_EQ(LongOf(after.Get(), PR_SENSITIVITY), sensitivity);
            EXPECT_FALSE(IsMarked(after));
            for (const auto* folder : {&left, &right})
                (*folder)->EmptyFolder(0, nullptr, 0);
        }
}

// Some programs show the box "private" and leave the sensitivity as it is.
TEST_F(TransferTest, TheBoxAloneMakesAnAppointmentPrivate) {
    const auto original = SavedAppointment(left, "Doctor", 0);
    SetLong(
        original.Get(),
        NamedTag(original.Get(), GUID{0x00062008, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}}, 0x8506, PT_BOOLEAN),
        1);
    Save(original);
    IMessagePtr source(original.Get());
    Flags(SYNC_TO_TARGET | SYNC_SKIP_PRIVATE);
    EXPECT_TRUE(Engine().IsSkippedPrivate(source));
    Flags(SYNC_TO_TARGET | SYNC_STRIP_PRIVATE);
    for (const LONG state : {STATE_NEW, STATE_MODIFIED}) {
        CopyRight({{"Doctor", state}});
        EXPECT_EQ(TextOf(OpenOnly(right).Get(), PR_SUBJECT_A), LabelSubject());
        EXPECT_TRUE(IsMarked(OpenOnly(right)));
    }
}

// Items that only the program has changed are no conflict, and what a person wrote into either is one. What
// stands in the copy is kept before it is replaced.
TEST_F(TransferTest, WhatIsWrittenIntoAStrippedCopyIsAConflictAndKept) {
    CopyPrivate();
    const auto conflicts = [&] {
        const CMapiRowSet leftRows = Rows(left), rightRows = Rows(right);
        CSyncMessages ours, theirs;
        ours.Add(Record(leftRows, {"Doctor", STATE_MODIFIED}));
        theirs.Add(Record(rightRows, {rightRows.Cell(0, COL_SUBJECT).Str(), STATE_MODIFIED}));
        Engine().ClearOutcome();
        const IMAPIFolderPtr source = Folder(left), target = Folder(right);
        Engine().FindConflicts(ours, theirs, &source, &target);
        return Engine().m_outcome.conflicts;
    };
    Change(left, "Doctor", "Surgeon");
    Change(left, "Surgeon", "Doctor");
    EXPECT_EQ(conflicts(), 0u);
    using Edit = void (*)(const TestRef<IMessage>&);
    const Edit edits[] = {
        [](const auto& m) { SetText(m.Get(), PR_SUBJECT_A, "[Anna] my own Private appointment"); },
        [](const auto& m) { SetText(m.Get(), PR_BODY_A, "call me"); },
        [](const auto& m) { SetText(m.Get(), PROP_TAG(PT_STRING8, 0x3A0D), "here"); },
        [](const auto& m) { SetText(m.Get(), NamedTag(m.Get(), L"Keyword", PT_STRING8), "blue"); },
        [](const auto& m) { Attach(m, "a.txt", "a"); },
        [](const auto& m) { AddRecipient(m, "Bob"); },
        [](const auto& m) {
            SetTime(m.Get(), NamedTag(m.Get(), AppointmentProps, 0x820D, PT_SYSTIME), {1, 0x01D90000});
        },
    };
    for (size_t i = 0; i < std::size(edits); ++i) {
        SCOPED_TRACE(i);
        const auto copy = OpenOnly(right);
        edits[i](copy);
        Save(copy);
        EXPECT_EQ(conflicts(), 1u);
        const std::string kept = Overwritten(rightStore, "Right");
        CopyRight({{"Doctor", STATE_MODIFIED}});
        EXPECT_NE(Overwritten(rightStore, "Right"), kept);
        EXPECT_EQ(conflicts(), 0u);
    }
}

// Rewriting by itself saves a target whose contents did not come, and keeps what it held.
TEST_F(TransferTest, ContentsThatDoNotComeLeaveAnEmptyTargetAndAKeptVersion) {
    SavedMessage(left.Get(), "A", "old");
    CopyRight({{"A", STATE_NEW}});
    Change(left, "A", "A2");
    const CMapiRowSet leftRows = Rows(left);
    const CMapiRowSet rightRows = Rows(right);
    const std::string syncId = SyncIdOf(OpenOnly(right));
    const auto faults = Faults(leftStore);
    bool emptied = false;
    bool reached = true;
    std::string held;
    for (ULONG n = 1; reached && !emptied; ++n) {
        SCOPED_TRACE(n);
        std::string status;
        held = SubjectsIn(right.Get());
        faults->SetFault(n, MAPI_E_NETWORK_ERROR, FALSE);
        Engine().ResyncObject(Folder(left), Folder(right), KeyOfRow(leftRows, 0), KeyOfRow(rightRows, 0),
                              status);
        reached = faults->CallCount() >= n;
        faults->SetFault(0, S_OK, FALSE);
        const auto target = OpenOnly(right);
        emptied = TextOf(target.Get(), PR_SUBJECT_A).empty();
        if (!emptied) continue;
        EXPECT_EQ(status, LoadText(TEXT_TARGET_REWRITTEN));
        EXPECT_EQ(StreamOf(target.Get(), PR_BODY_A), "");
        EXPECT_EQ(SyncIdOf(target), syncId);
    }
    EXPECT_TRUE(emptied);
    EXPECT_FALSE(held.empty());
    EXPECT_EQ(Overwritten(rightStore, "Right"), held);
}

TEST_F(TransferTest, RemoveContentsKeepsNothingButTheIdentity) {
    auto message = SavedMessage(left.Get(), "A", "text");
    Attach(message, "a.txt", "data");
    Attach(message, "b.txt", "data");
    AddRecipient(message, "Bert");
    SetText(message.Get(), NamedTag(message.Get(), L"Colour", PT_STRING8), "red");
    Save(message);
    const std::string id = BytesOf(message.Get(), PR_ENTRYID);
    IMessagePtr wrapper(message.Get());
    Engine().RemoveContents(wrapper);
    // Not saved by itself: another look still sees the old version.
    EXPECT_EQ(AttachmentsOf(OpenById(left, id)), 2u);
    Save(message);
    message = OpenById(left, id);
    EXPECT_EQ(AttachmentsOf(message), 0u);
    EXPECT_EQ(RecipientsOf(message), 0u);
    EXPECT_EQ(TextOf(message.Get(), PR_SUBJECT_A), "");
    EXPECT_EQ(StreamOf(message.Get(), PR_BODY_A), "");
    EXPECT_FALSE(HasProp(message.Get(), NamedTag(message.Get(), L"Colour", PT_STRING8)));
}

TEST_F(TransferTest, NamedPropertiesArriveUnderTheirNames) {
    // The other store numbers its names differently.
    const auto other = SavedMessage(right.Get(), "other");
    for (const wchar_t* name : {L"One", L"Two", L"Three"})
        NamedTag(other.Get(), name, PT_STRING8);
    const auto source = SavedMessage(left.Get(), "A");
    SetText(source.Get(), NamedTag(source.Get(), L"Colour", PT_STRING8), "red");
    Save(source);
    CopyRight({{"A", STATE_NEW}});
    const auto target = Open(right, "A");
    EXPECT_EQ(TextOf(target.Get(), NamedTag(target.Get(), L"Colour", PT_STRING8)), "red");
}

// ---- one item as a watcher sees it ----------------------------------------------------------------

TEST_F(TransferTest, WatchedItemIsCreatedLinkedAndRemembered) {
    const auto source = SavedMessage(left.Get(), "A", "text");
    IMessagePtr wrapper(source.Get());
    Engine().SyncSingleMessage(wrapper, Folder(left), Folder(right), false);
    const auto target = OpenOnly(right);
    EXPECT_EQ(StreamOf(target.Get(), PR_BODY_A), "text");
    EXPECT_FALSE(SyncIdOf(target).empty());
    EXPECT_EQ(SyncIdOf(target), SyncIdOf(Open(left, "A")));
    CSyncFileMap memory;
    FILETIME time{};
    Engine().ReadSyncFile(Folder(left), "TargetID", memory, &time);
    EXPECT_TRUE(memory.FindBySyncId(SyncIdOf(target)));
}

TEST_F(TransferTest, WatchedItemReplacesAttachmentsOfItsTarget) {
    auto source = SavedMessage(left.Get(), "A");
    IMessagePtr wrapper(source.Get());
    Engine().SyncSingleMessage(wrapper, Folder(left), Folder(right), false);
    auto target = OpenOnly(right);
    Attach(target, "stray.txt", "x");
    Save(target);
    target.Reset();
    SetText(source.Get(), PR_SUBJECT_A, "A2");
    Save(source);
    Engine().SyncSingleMessage(wrapper, Folder(left), Folder(right), false);
    target = OpenOnly(right);
    EXPECT_EQ(TextOf(target.Get(), PR_SUBJECT_A), "A2");
    EXPECT_EQ(AttachmentsOf(target), 0u);
}

TEST_F(TransferTest, AWatcherSkipsAppointmentsOfAnySensitivity) {
    const auto personal = SavedAppointment(left, "Gym", 1);
    IMessagePtr wrapper(personal.Get());
    Engine().SyncSingleMessage(wrapper, Folder(left), Folder(right), true);
    EXPECT_EQ(SubjectsIn(right.Get()), "");
}

// ---- making sure that a counterpart exists --------------------------------------------------------

TEST_F(TransferTest, MissingCounterpartIsMadeOnce) {
    const auto source = SavedMessage(left.Get(), "A", "text");
    const std::string id = BytesOf(source.Get(), PR_ENTRYID);
    const SBinary entryId = {static_cast<ULONG>(id.size()),
                             reinterpret_cast<BYTE*>(const_cast<char*>(id.data()))};
    CSyncFileMap memory;
    for (int i = 0; i < 2; ++i) {
        const CMapiRowSet rows = Rows(right);
        Engine().CheckIfTargetExists(entryId, memory, rows, Folder(left), Folder(right));
    }
    EXPECT_EQ(SubjectsIn(right.Get()), "A");
    EXPECT_EQ(SyncIdOf(Open(right, "A")), SyncIdOf(Open(left, "A")));
}

TEST_F(TransferTest, OfTwoEqualSubjectsTheOneWithOurIdCounts) {
    const auto source = SavedMessage(left.Get(), "A");
    SetText(source.Get(), NamedTag(source.Get(), L"LarchID", PT_STRING8), "id");
    Save(source);
    SavedMessage(right.Get(), "A");
    const auto ours = SavedMessage(right.Get(), "A");
    SetText(ours.Get(), NamedTag(ours.Get(), L"LarchID", PT_STRING8), "id");
    Save(ours);
    const std::string id = BytesOf(source.Get(), PR_ENTRYID);
    const SBinary entryId = {static_cast<ULONG>(id.size()),
                             reinterpret_cast<BYTE*>(const_cast<char*>(id.data()))};
    CSyncFileMap memory;
    const CMapiRowSet rows = Rows(right);
    Engine().CheckIfTargetExists(entryId, memory, rows, Folder(left), Folder(right));
    EXPECT_EQ(ContentsOf(right.Get(), {PR_ENTRYID}).Count(), 2u);
}
}  // namespace
