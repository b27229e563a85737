// Folders and what they do to messages and to each other.
#include <Platform/Clock.h>
#include <support/StoreFixture.h>

namespace {

char* Mutable(const std::string& text) {
    return const_cast<char*>(text.c_str());
}
LPENTRYID EntryOf(const std::string& id) {
    return reinterpret_cast<LPENTRYID>(Mutable(id));
}

class StoreFolder : public TwoStores {
protected:
    TestRef<IMAPIFolder> Ipm(IMsgStore* store) { return OpenStoreFolder(store, PR_IPM_SUBTREE_ENTRYID); }
    std::string IdOf(IMAPIProp* object) { return BytesOf(object, PR_ENTRYID); }
    HRESULT Transfer(IMAPIFolder* from, IMAPIFolder* to, std::vector<std::string> ids, ULONG flags) {
        TestEntryList list(ids);
        return from->CopyMessages(list.Get(), &IID_IMAPIFolder, to, 0, nullptr, flags);
    }
    HRESULT Delete(IMAPIFolder* parent, IMAPIFolder* child, ULONG flags) {
        const std::string id = IdOf(child);
        return parent->DeleteFolder(static_cast<ULONG>(id.size()), EntryOf(id), 0, nullptr, flags);
    }
    HRESULT Copy(IMAPIFolder* parent, IMAPIFolder* child, IMAPIFolder* to, const char* name, ULONG flags) {
        const std::string id = IdOf(child);
        return parent->CopyFolder(static_cast<ULONG>(id.size()), EntryOf(id), &IID_IMAPIFolder, to,
                                  const_cast<char*>(name), 0, nullptr, flags);
    }
    std::string Names(IMAPIFolder* folder) {
        const TestRows rows = HierarchyOf(folder, {PR_DISPLAY_NAME_A});
        std::string names;
        for (ULONG i = 0; i < rows.Count(); ++i)
            names += (i ? "," : "") + rows.Text(i, 0);
        return names;
    }
};

}  // namespace

TEST_F(StoreFolder, StandardFoldersStandInTheirPlaces) {
    auto ipm = Ipm(leftStore.Get());
    EXPECT_EQ(Names(ipm.Get()),
              "Inbox,Outbox,Sent Items,Deleted Items,Calendar,Contacts,Tasks,Notes,Journal,Left");
    const TestRows rows = HierarchyOf(ipm.Get(), {PR_CONTAINER_CLASS_A});
    EXPECT_EQ(rows.Text(4, 0), "IPF.Appointment");
    EXPECT_EQ(rows.Text(7, 0), "IPF.StickyNote");
    EXPECT_EQ(TextOf(OpenReceiveFolder(leftStore.Get()).Get(), PR_DISPLAY_NAME_A), "Inbox");
    EXPECT_EQ(TextOf(OpenStoreFolder(leftStore.Get(), PR_IPM_WASTEBASKET_ENTRYID).Get(), PR_DISPLAY_NAME_A),
              "Deleted Items");
    TestRef<IMAPIFolder> root;
    ULONG type = 0;
    ASSERT_EQ(leftStore->OpenEntry(0, nullptr, nullptr, 0, &type, reinterpret_cast<IUnknown**>(root.Out())),
              S_OK);
    EXPECT_EQ(BytesOf(root.Get(), PR_PARENT_ENTRYID), IdOf(root.Get()));
    EXPECT_EQ(TextOf(root.Get(), PR_DISPLAY_NAME_A), "");
    EXPECT_EQ(BytesOf(ipm.Get(), PR_PARENT_ENTRYID), IdOf(root.Get()));
}

TEST_F(StoreFolder, NamesAreUniqueByteForByte) {
    TestRef<IMAPIFolder> folder;
    auto create = [&](const char* name, ULONG flags) {
        return left->CreateFolder(FOLDER_GENERIC, const_cast<char*>(name), const_cast<char*>("comment"),
                                  nullptr, flags, folder.Out());
    };
    EXPECT_EQ(create("A", 0), S_OK);
    EXPECT_EQ(TextOf(folder.Get(), PR_COMMENT_A), "comment");
    const std::string id = IdOf(folder.Get());
    EXPECT_EQ(create("A", 0), MAPI_E_COLLISION);
    EXPECT_EQ(create("A", OPEN_IF_EXISTS), S_OK);
    EXPECT_EQ(IdOf(folder.Get()), id);
    EXPECT_EQ(create("a", 0), S_OK);
    EXPECT_EQ(SetText(folder.Get(), PR_DISPLAY_NAME_A, "A"), MAPI_E_COLLISION);
    EXPECT_EQ(SetText(folder.Get(), PR_DISPLAY_NAME_A, "B"), S_OK);
    EXPECT_EQ(Names(left.Get()), "A,B");
    EXPECT_EQ(create("", 0), MAPI_E_INVALID_PARAMETER);
}

TEST_F(StoreFolder, CopiesKeepTimesAndSearchKeyUnderANewEntryId) {
    auto message = NewMessage(left.Get(), "M", std::string(900, 'b'));
    const ULONG tag = NamedTag(message.Get(), L"Name", PT_STRING8);
    ASSERT_EQ(SetText(message.Get(), tag, "v"), S_OK);
    ASSERT_EQ(SetTime(message.Get(), PR_LAST_MODIFICATION_TIME, FileTimeOf(77)), S_OK);
    ASSERT_EQ(SetTime(message.Get(), PR_CREATION_TIME, FileTimeOf(66)), S_OK);
    ASSERT_EQ(message->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
    NamedTag(right.Get(), L"Other", PT_LONG);
    EXPECT_EQ(Transfer(left.Get(), right.Get(), {IdOf(message.Get())}, 0), S_OK);
    EXPECT_EQ(SubjectsIn(left.Get()), "M");
    const TestRows rows =
        ContentsOf(right.Get(), {PR_ENTRYID, PR_SEARCH_KEY, PR_LAST_MODIFICATION_TIME, PR_CREATION_TIME,
                                 NamedTag(right.Get(), L"Name", PT_STRING8)});
    ASSERT_EQ(rows.Count(), 1u);
    EXPECT_EQ(rows.Bytes(0, 1), BytesOf(message.Get(), PR_SEARCH_KEY));
    EXPECT_EQ(TicksOf(rows.Cell(0, 2).Value.ft), 77u);
    EXPECT_EQ(TicksOf(rows.Cell(0, 3).Value.ft), 66u);
    EXPECT_EQ(rows.Text(0, 4), "v");
    EXPECT_EQ(TextOf(OpenTestMessage(rightStore.Get(), rows.Bytes(0, 0)).Get(), PR_BODY_A),
              std::string(900, 'b'));
}

TEST_F(StoreFolder, MovesGiveANewEntryIdInsideAndBetweenStores) {
    auto second = MakeFolder(left.Get(), "Second");
    auto message = SavedMessage(left.Get(), "M", std::string(900, 'b'));
    const std::string oldId = IdOf(message.Get()), key = BytesOf(message.Get(), PR_SEARCH_KEY);
    ASSERT_EQ(Transfer(left.Get(), second.Get(), {oldId}, MESSAGE_MOVE), S_OK);
    EXPECT_EQ(SubjectsIn(left.Get()), "");
    TestRows rows = ContentsOf(second.Get(), {PR_ENTRYID, PR_SEARCH_KEY});
    ASSERT_EQ(rows.Count(), 1u);
    EXPECT_NE(rows.Bytes(0, 0), oldId);
    EXPECT_EQ(rows.Bytes(0, 1), key);
    EXPECT_EQ(Transfer(left.Get(), second.Get(), {oldId}, MESSAGE_MOVE), MAPI_W_PARTIAL_COMPLETION);
    ASSERT_EQ(Transfer(second.Get(), right.Get(), {rows.Bytes(0, 0)}, MESSAGE_MOVE), S_OK);
    EXPECT_EQ(SubjectsIn(second.Get()), "");
    rows = ContentsOf(right.Get(), {PR_ENTRYID, PR_SEARCH_KEY});
    ASSERT_EQ(rows.Count(), 1u);
    EXPECT_EQ(rows.Bytes(0, 1), key);
    EXPECT_EQ(TextOf(OpenTestMessage(rightStore.Get(), rows.Bytes(0, 0)).Get(), PR_BODY_A),
              std::string(900, 'b'));
}

TEST_F(StoreFolder, OneBadEntryDoesNotStopTheOthers) {
    const std::string good = IdOf(SavedMessage(left.Get(), "Good").Get());
    const std::string foreign = IdOf(SavedMessage(right.Get(), "Foreign").Get());
    EXPECT_EQ(Transfer(left.Get(), right.Get(), {foreign, "short", good}, 0), MAPI_W_PARTIAL_COMPLETION);
    EXPECT_EQ(SubjectsIn(right.Get()), "Foreign Good");
    std::vector<std::string> both = {good, good};
    TestEntryList list(both);
    EXPECT_EQ(left->DeleteMessages(list.Get(), 0, nullptr, 0), MAPI_W_PARTIAL_COMPLETION);
    EXPECT_EQ(SubjectsIn(left.Get()), "");
}

TEST_F(StoreFolder, EntryIdsAreNotGivenAgain) {
    const std::string first = IdOf(SavedMessage(left.Get(), "1").Get());
    ASSERT_EQ(DeleteBySubject(left.Get(), "1"), S_OK);
    EXPECT_NE(IdOf(SavedMessage(left.Get(), "2").Get()), first);
}

TEST_F(StoreFolder, DeletingAsksForWhatIsInside) {
    auto parent = MakeFolder(left.Get(), "P");
    auto child = MakeFolder(parent.Get(), "C");
    SavedMessage(parent.Get(), "M");
    EXPECT_EQ(Delete(left.Get(), parent.Get(), 0), MAPI_E_HAS_MESSAGES);
    EXPECT_EQ(Delete(left.Get(), parent.Get(), DEL_MESSAGES), MAPI_E_HAS_FOLDERS);
    EXPECT_EQ(Delete(right.Get(), parent.Get(), DEL_MESSAGES | DEL_FOLDERS), MAPI_E_UNKNOWN_ENTRYID);
    EXPECT_EQ(Delete(left.Get(), parent.Get(), DEL_MESSAGES | DEL_FOLDERS), S_OK);
    EXPECT_EQ(Names(left.Get()), "");
    TestRef<IMessage> orphan;
    ASSERT_EQ(parent->CreateMessage(nullptr, 0, orphan.Out()), S_OK);
    EXPECT_EQ(orphan->SaveChanges(0), MAPI_E_OBJECT_DELETED);
    auto ipm = Ipm(leftStore.Get());
    EXPECT_EQ(Delete(ipm.Get(), OpenReceiveFolder(leftStore.Get()).Get(), DEL_MESSAGES | DEL_FOLDERS),
              MAPI_E_NO_ACCESS);
}

TEST_F(StoreFolder, TreesAreCopiedAndMovedButNotIntoThemselves) {
    auto tree = MakeFolder(left.Get(), "Tree");
    auto below = MakeFolder(tree.Get(), "Below");
    SavedMessage(below.Get(), "Deep");
    EXPECT_EQ(Copy(left.Get(), tree.Get(), below.Get(), nullptr, FOLDER_MOVE), MAPI_E_FOLDER_CYCLE);
    EXPECT_EQ(Copy(left.Get(), tree.Get(), left.Get(), nullptr, COPY_SUBFOLDERS), MAPI_E_COLLISION);
    ASSERT_EQ(Copy(left.Get(), tree.Get(), right.Get(), "Copied", COPY_SUBFOLDERS), S_OK);
    EXPECT_EQ(SubjectsIn(MakeFolder(MakeFolder(right.Get(), "Copied").Get(), "Below").Get()), "Deep");
    ASSERT_EQ(Copy(left.Get(), tree.Get(), right.Get(), nullptr, FOLDER_MOVE), S_OK);
    EXPECT_EQ(Names(left.Get()), "");
    EXPECT_EQ(Names(right.Get()), "Copied,Tree");
    auto elsewhere = MakeFolder(left.Get(), "Elsewhere");
    auto again = MakeFolder(left.Get(), "Again");
    SavedMessage(again.Get(), "Kept");
    ASSERT_EQ(Copy(left.Get(), again.Get(), elsewhere.Get(), "Moved", FOLDER_MOVE), S_OK);
    EXPECT_EQ(SubjectsIn(MakeFolder(elsewhere.Get(), "Moved").Get()), "Kept");
}

TEST_F(StoreFolder, EmptyingSparesHiddenMessagesUnlessAsked) {
    TestRef<IMessage> hidden;
    ASSERT_EQ(left->CreateMessage(nullptr, MAPI_ASSOCIATED, hidden.Out()), S_OK);
    ASSERT_EQ(SetText(hidden.Get(), PR_SUBJECT_A, "Hidden"), S_OK);
    ASSERT_EQ(hidden->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
    SavedMessage(left.Get(), "Shown");
    MakeFolder(left.Get(), "Child");
    EXPECT_EQ(LongOf(left.Get(), PR_CONTENT_COUNT), 1);
    EXPECT_EQ(LongOf(left.Get(), PR_ASSOC_CONTENT_COUNT), 1);
    ASSERT_EQ(left->EmptyFolder(0, nullptr, 0), S_OK);
    EXPECT_EQ(SubjectsIn(left.Get()) + Names(left.Get()), "");
    EXPECT_EQ(SubjectsIn(left.Get(), MAPI_ASSOCIATED), "Hidden");
    ASSERT_EQ(left->EmptyFolder(0, nullptr, DEL_ASSOCIATED), S_OK);
    EXPECT_EQ(SubjectsIn(left.Get(), MAPI_ASSOCIATED), "");
}

// CopyTo of a folder: everything in and below it, but for what the caller leaves out.
TEST_F(StoreFolder, CopyToTakesTheWholeFolderOrWhatIsAskedFor) {
    SavedMessage(left.Get(), "M");
    TestRef<IMessage> hidden;
    ASSERT_EQ(left->CreateMessage(nullptr, MAPI_ASSOCIATED, hidden.Out()), S_OK);
    ASSERT_EQ(SetText(hidden.Get(), PR_SUBJECT_A, "H"), S_OK);
    ASSERT_EQ(hidden->SaveChanges(0), S_OK);
    ASSERT_EQ(SetText(left.Get(), PR_COMMENT_A, "why"), S_OK);
    const auto below = MakeFolder(MakeFolder(left.Get(), "Below").Get(), "Deep");
    SavedMessage(below.Get(), "D");
    const auto copyTo = [&](IMAPIFolder* target, std::vector<ULONG> exclude) {
        exclude.insert(exclude.begin(), static_cast<ULONG>(exclude.size()));
        return left->CopyTo(0, nullptr, reinterpret_cast<LPSPropTagArray>(exclude.data()), 0, nullptr,
                            &IID_IMAPIFolder, target, 0, nullptr);
    };
    const auto look = [&](IMAPIFolder* folder) {
        return SubjectsIn(folder) + "|" + SubjectsIn(folder, MAPI_ASSOCIATED) + "|" + Names(folder) + "|" +
               TextOf(folder, PR_COMMENT_A);
    };
    for (const auto& target : {MakeFolder(Ipm(leftStore.Get()).Get(), "Whole"), right}) {
        ASSERT_EQ(copyTo(target.Get(), {PR_DISPLAY_NAME_A}), S_OK);
        EXPECT_EQ(look(target.Get()), "M|H|Below|why");
        EXPECT_EQ(SubjectsIn(MakeFolder(MakeFolder(target.Get(), "Below").Get(), "Deep").Get()), "D");
        EXPECT_EQ(copyTo(target.Get(), {PR_DISPLAY_NAME_A}), MAPI_E_COLLISION);
        EXPECT_EQ(look(target.Get()), "M|H|Below|why") << "all or nothing";
    }
    const auto part = MakeFolder(Ipm(leftStore.Get()).Get(), "Part");
    ASSERT_EQ(copyTo(part.Get(), {PR_DISPLAY_NAME_A, PR_CONTAINER_CONTENTS, PR_FOLDER_ASSOCIATED_CONTENTS,
                                  PR_CONTAINER_HIERARCHY}),
              S_OK);
    EXPECT_EQ(look(part.Get()), "|||why");
    SPropTagArray include = {1, {PR_CONTAINER_CONTENTS}};
    ASSERT_EQ(left->CopyProps(&include, 0, nullptr, &IID_IMAPIFolder, part.Get(), 0, nullptr), S_OK);
    EXPECT_EQ(look(part.Get()), "M|||why");
    EXPECT_EQ(copyTo(below.Get(), {PR_DISPLAY_NAME_A}), MAPI_E_FOLDER_CYCLE);
    EXPECT_EQ(copyTo(left.Get(), {PR_DISPLAY_NAME_A}), MAPI_E_NO_ACCESS);
}

TEST_F(StoreFolder, StatusAndReadFlagsBelongToTheFolder) {
    const std::string id = IdOf(SavedMessage(left.Get(), "M").Get());
    ULONG old = 99, now = 0;
    const auto cb = static_cast<ULONG>(id.size());
    ASSERT_EQ(
        left->SetMessageStatus(cb, EntryOf(id), MSGSTATUS_TAGGED | MSGSTATUS_HIDDEN, MSGSTATUS_TAGGED, &old),
        S_OK);
    EXPECT_EQ(old, 0u);
    ASSERT_EQ(left->GetMessageStatus(cb, EntryOf(id), 0, &now), S_OK);
    EXPECT_EQ(now, MSGSTATUS_TAGGED);
    ASSERT_EQ(left->SetReadFlags(nullptr, 0, nullptr, CLEAR_READ_FLAG), S_OK);
    EXPECT_EQ(LongOf(left.Get(), PR_CONTENT_UNREAD), 1);
}

TEST_F(StoreFolder, ReceiveFoldersGoByTheLongestClass) {
    const std::string id = IdOf(left.Get());
    ASSERT_EQ(leftStore->SetReceiveFolder(Mutable("IPM.Task"), 0, static_cast<ULONG>(id.size()), EntryOf(id)),
              S_OK);
    auto folderFor = [&](const char* messageClass, std::string& explicitClass) {
        ULONG cb = 0;
        LPENTRYID entry = nullptr;
        LPTSTR text = nullptr;
        EXPECT_EQ(leftStore->GetReceiveFolder(const_cast<char*>(messageClass), 0, &cb, &entry, &text), S_OK);
        std::string found(reinterpret_cast<char*>(entry), cb);
        explicitClass = text;
        MAPIFreeBuffer(entry);
        MAPIFreeBuffer(text);
        return found;
    };
    std::string explicitClass;
    EXPECT_EQ(folderFor("ipm.task.Special", explicitClass), id);
    EXPECT_EQ(explicitClass, "IPM.Task");
    EXPECT_NE(folderFor("IPM.TaskRequest", explicitClass), id);
    EXPECT_EQ(explicitClass, "");
    ASSERT_EQ(leftStore->SetReceiveFolder(Mutable("IPM.Task"), 0, 0, nullptr), S_OK);
    EXPECT_NE(folderFor("IPM.Task", explicitClass), id);
}

// A store whose tables give short-term entry IDs, as server stores do.
class ShortTermStores : public TwoStores {
protected:
    ShortTermStores() : TwoStores(StoreOptions{true}) {}
};

TEST_F(ShortTermStores, TablesGiveBothIdsAndEitherOpens) {
    constexpr ULONG longTerm = PROP_TAG(PT_BINARY, 0x6670);
    auto message = SavedMessage(left.Get(), "M");
    const TestRows rows = ContentsOf(left.Get(), {PR_ENTRYID, longTerm, PR_PARENT_ENTRYID});
    const std::string shortId = rows.Bytes(0, 0), longId = rows.Bytes(0, 1);
    EXPECT_NE(shortId, longId);
    EXPECT_EQ(longId, BytesOf(message.Get(), PR_ENTRYID));
    EXPECT_EQ(rows.Bytes(0, 2), BytesOf(left.Get(), PR_ENTRYID));
    EXPECT_EQ(TextOf(OpenTestMessage(leftStore.Get(), shortId).Get(), PR_SUBJECT_A), "M");
    ULONG same = 0;
    ASSERT_EQ(leftStore->CompareEntryIDs(static_cast<ULONG>(shortId.size()), EntryOf(shortId),
                                         static_cast<ULONG>(longId.size()), EntryOf(longId), 0, &same),
              S_OK);
    EXPECT_TRUE(same);
    EXPECT_FALSE(HasProp(message.Get(), longTerm));  // of tables only
    const std::vector<std::string> ids = {shortId};
    TestEntryList list(ids);
    EXPECT_EQ(left->DeleteMessages(list.Get(), 0, nullptr, 0), S_OK);
}
