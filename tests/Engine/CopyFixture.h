// Two folders, an engine, and the small verbs of tests that carry items from one to the other.
#pragma once
#include <Platform/UserInterface.h>
#include <Tarn/Engine/MessageCache.h>
#include <Tarn/Engine/syncfolder.h>
#include <support/StoreFixture.h>

#include <memory>
#include <string>
#include <vector>

inline constexpr GUID AppointmentProps = {0x00062002, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
inline constexpr GUID AddressProps = {0x00062004, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};

class CopyFixture : public TwoStores {
protected:
    struct Item {
        std::string subject;
        LONG state;
    };

    void SetUp() override {
        TwoStores::SetUp();
        m_engine = std::make_unique<CSyncFolder>();
        m_engine->m_session = CMapiSession(session.Get());
        m_engine->m_setting = &m_setting;
        m_engine->m_protocol = &m_protocol;
        m_setting.m_flags = SYNC_TO_TARGET | SYNC_FROM_TARGET;
    }
    void TearDown() override {
        Faults(rightStore)->SetFault(0, S_OK, FALSE);
        Faults(leftStore)->SetFault(0, S_OK, FALSE);
        m_engine.reset();
        TwoStores::TearDown();
    }

    CSyncFolder& Engine() { return *m_engine; }
    void Flags(ULONG flags) {
        m_setting.m_flags = flags;
        m_engine->m_stripPrivate = (flags & SYNC_STRIP_PRIVATE) != 0;
        m_engine->m_skipPrivate = (flags & SYNC_SKIP_PRIVATE) != 0;
    }

    static IMAPIFolderPtr Folder(const TestRef<IMAPIFolder>& folder) { return IMAPIFolderPtr(folder.Get()); }
    static IMsgStorePtr Store(const TestRef<IMsgStore>& store) { return IMsgStorePtr(store.Get()); }
    static TestRef<IStoreFaults> Faults(const TestRef<IMsgStore>& store) {
        TestRef<IStoreFaults> faults;
        EXPECT_EQ(store->QueryInterface(IID_IStoreFaults, reinterpret_cast<void**>(faults.Out())), S_OK);
        return faults;
    }

    CMapiRowSet Rows(const TestRef<IMAPIFolder>& folder) {
        const IMAPIFolderPtr wrapper = Folder(folder);
        CMapiRowSet rows;
        Engine().QuerySyncRows(rows, wrapper, wrapper._rawContentsTable());
        return rows;
    }
    static ULONG RowOf(const CMapiRowSet& rows, const std::string& subject) {
        const int row = rows.FindRow(COL_SUBJECT, subject);
        EXPECT_GE(row, 0) << "no row " << subject;
        return static_cast<ULONG>(row);
    }

    // The record that the analysis would make of a row.
    static std::unique_ptr<CSyncMessage> Record(const CMapiRowSet& rows, const Item& item) {
        const ULONG row = RowOf(rows, item.subject);
        auto record = std::make_unique<CSyncMessage>();
        record->m_item = KeyOfRow(rows, row);
        record->m_syncId = rows.Cell(row, COL_SYNC_ID).Str();
        if (record->m_syncId.empty()) {
            record->m_searchKey = rows.Cell(row, COL_SEARCH_KEY).Binary();
            record->m_syncId = record->m_searchKey.Hex();
        }
        record->m_name = item.subject;
        record->m_modified = rows.Cell(row, COL_MODIFIED).Time();
        record->m_created = rows.Cell(row, COL_CREATED).Time();
        record->m_state = item.state;
        return record;
    }

    void Copy(const TestRef<IMAPIFolder>& from, const TestRef<IMAPIFolder>& to,
              const std::vector<Item>& items) {
        const CMapiRowSet fromRows = Rows(from);
        CSyncMessages list;
        for (const Item& item : items)
            list.Add(Record(fromRows, item));
        CopyList(from, to, list);
    }
    void CopyList(const TestRef<IMAPIFolder>& from, const TestRef<IMAPIFolder>& to, CSyncMessages& list) {
        const CMapiRowSet fromRows = Rows(from);
        const CMapiRowSet toRows = Rows(to);
        const bool toRight = to.Get() == right.Get();
        CSyncFileMap unused;
        Engine().m_copyToSource = !toRight;
        Engine().m_ownWrites.Clear();  // each is a run of its own
        Engine().CopyModifiedElements(list, Folder(from), Folder(to), fromRows, toRows, unused,
                                      Store(toRight ? leftStore : rightStore),
                                      Store(toRight ? rightStore : leftStore), "From", "To");
    }
    void CopyRight(const std::vector<Item>& items) { Copy(left, right, items); }
    void CopyLeft(const std::vector<Item>& items) { Copy(right, left, items); }

    // The single item of that subject, opened anew.
    static TestRef<IMessage> Open(const TestRef<IMAPIFolder>& folder, const std::string& subject) {
        const TestRows rows = ContentsOf(folder.Get(), {PR_ENTRYID, PR_SUBJECT_A});
        for (ULONG i = 0; i < rows.Count(); ++i)
            if (rows.Text(i, 1) == subject) return OpenById(folder, rows.Bytes(i, 0));
        ADD_FAILURE() << "no item " << subject;
        return {};
    }
    static TestRef<IMessage> OpenOnly(const TestRef<IMAPIFolder>& folder) {
        const TestRows rows = ContentsOf(folder.Get(), {PR_ENTRYID});
        EXPECT_EQ(rows.Count(), 1u);
        return rows.Count() ? OpenById(folder, rows.Bytes(0, 0)) : TestRef<IMessage>();
    }
    static TestRef<IMessage> OpenById(const TestRef<IMAPIFolder>& folder, std::string id) {
        ULONG type = 0;
        TestRef<IUnknown> object;
        EXPECT_EQ(folder->OpenEntry(static_cast<ULONG>(id.size()), reinterpret_cast<LPENTRYID>(id.data()),
                                    &IID_IMessage, MAPI_BEST_ACCESS, &type, object.Out()),
                  S_OK);
        TestRef<IMessage> message;
        if (object) object->QueryInterface(IID_IMessage, reinterpret_cast<void**>(message.Out()));
        return message;
    }

    static std::string SyncIdOf(const TestRef<IMessage>& message) {
        return TextOf(message.Get(), NamedTag(message.Get(), L"LarchID", PT_STRING8));
    }
    static bool IsMarked(const TestRef<IMessage>& message) {
        return LongOf(message.Get(), NamedTag(message.Get(), L"TarnPriv", PT_LONG)) == 1;
    }
    static void Change(const TestRef<IMAPIFolder>& folder, const std::string& subject,
                       const std::string& to) {
        const auto message = Open(folder, subject);
        ASSERT_TRUE(message);
        ASSERT_EQ(SetText(message.Get(), PR_SUBJECT_A, to), S_OK);
        ASSERT_EQ(message->SaveChanges(0), S_OK);
    }
    static void Save(const TestRef<IMessage>& message) {
        ASSERT_EQ(message->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
    }
    static ULONG AttachmentsOf(const TestRef<IMessage>& message) {
        TestRef<IMAPITable> table;
        EXPECT_EQ(message->GetAttachmentTable(0, table.Out()), S_OK);
        return table ? TestRows(table.Get(), {PR_ATTACH_NUM}).Count() : 0;
    }
    static ULONG RecipientsOf(const TestRef<IMessage>& message) {
        TestRef<IMAPITable> table;
        EXPECT_EQ(message->GetRecipientTable(0, table.Out()), S_OK);
        return table ? TestRows(table.Get(), {PR_ROWID}).Count() : 0;
    }
    static void Attach(const TestRef<IMessage>& message, const std::string& name, const std::string& data) {
        IMessagePtr wrapper(message.Get());
        ASSERT_EQ(wrapper.AddAttachmentData(data.data(), static_cast<ULONG>(data.size()), name.c_str()),
                  S_OK);
    }
    static void AddRecipient(const TestRef<IMessage>& message, const std::string& name) {
        SPropValue values[3] = {};
        values[0].ulPropTag = PR_DISPLAY_NAME_A;
        values[0].Value.lpszA = const_cast<char*>(name.c_str());
        values[1].ulPropTag = PR_EMAIL_ADDRESS_A;
        values[1].Value.lpszA = const_cast<char*>(name.c_str());
        values[2].ulPropTag = PR_RECIPIENT_TYPE;
        values[2].Value.l = MAPI_TO;
        SizedADRLIST(1, list) = {1, {{0, 3, values}}};
        ASSERT_EQ(message->ModifyRecipients(MODRECIP_ADD, reinterpret_cast<LPADRLIST>(&list)), S_OK);
    }

    // Subjects in a holding folder of the store, "" if it is empty or not there.
    static std::string Held(const TestRef<IMsgStore>& store, const std::string& kind,
                            const std::string& name) {
        auto folder = OpenStoreFolder(store.Get(), PR_IPM_WASTEBASKET_ENTRYID);
        for (const std::string& step : {std::string("Vellumware"), kind, name}) {
            IMAPIFolderPtr child = FindSubfolder(IMAPIFolderPtr(folder.Get()), step);
            if (!child) return {};
            folder = TestRef<IMAPIFolder>(child.Detach());
        }
        return SubjectsIn(folder.Get());
    }
    static std::string Overwritten(const TestRef<IMsgStore>& store, const std::string& name) {
        return Held(store, LoadText(TEXT_OVERWRITTEN_FOLDER), name);
    }

    TestRef<IMessage> SavedAppointment(const TestRef<IMAPIFolder>& folder, const std::string& subject,
                                       LONG sensitivity) {
        auto message = NewMessage(folder.Get(), subject, "Body of " + subject);
        EXPECT_EQ(SetText(message.Get(), PR_MESSAGE_CLASS_A, "IPM.Appointment"), S_OK);
        EXPECT_EQ(SetLong(message.Get(), PR_SENSITIVITY, sensitivity), S_OK);
        EXPECT_EQ(SetText(message.Get(), PR_SENDER_NAME_A, "Anna"), S_OK);
        EXPECT_EQ(
            SetText(message.Get(), NamedTag(message.Get(), AppointmentProps, 0x8208, PT_STRING8), "Room 4"),
            S_OK);
        Save(message);
        return message;
    }

    CTarnSetting m_setting;
    CSyncProtocol m_protocol;
    CRecordingUserInterface m_ui;

private:
    std::unique_ptr<CSyncFolder> m_engine;
};
