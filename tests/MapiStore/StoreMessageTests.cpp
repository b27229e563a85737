// Messages: properties, saving, recipients, attachments, copying.
#include <Platform/Clock.h>
#include <Platform/Machine.h>
#include <Platform/Utf8.h>

#include <array>

#include "ItemParts.h"

namespace {

class StoreMessage : public TwoStores {
protected:
    std::string IdOf(IMessage* message) { return BytesOf(message, PR_ENTRYID); }
    TestRef<IMessage> Reopened(IMessage* message) { return OpenTestMessage(leftStore.Get(), IdOf(message)); }
};

SCODE SetProblem(IMAPIProp* object, SPropValue value) {
    LPSPropProblemArray problems = nullptr;
    EXPECT_EQ(object->SetProps(1, &value, &problems), S_OK);
    const SCODE code = problems ? problems->aProblem[0].scode : S_OK;
    MAPIFreeBuffer(problems);
    return code;
}

std::string RecipientNames(IMessage* message) {
    TestRef<IMAPITable> table;
    EXPECT_EQ(message->GetRecipientTable(0, table.Out()), S_OK);
    const TestRows rows(table.Get(), {PR_DISPLAY_NAME_A, PR_ROWID});
    std::string names;
    for (ULONG i = 0; i < rows.Count(); ++i)
        names += (i ? " " : "") + rows.Text(i, 0);
    return names;
}

ULONG AttachmentCount(IMessage* message) {
    TestRef<IMAPITable> table;
    EXPECT_EQ(message->GetAttachmentTable(0, table.Out()), S_OK);
    return TestRows(table.Get(), {PR_ATTACH_NUM}).Count();
}

HRESULT CopyAll(IMAPIProp* from, IMAPIProp* to, LPSPropTagArray exclude = nullptr) {
    return from->CopyTo(0, nullptr, exclude, 0, nullptr, &IID_IMessage, to, 0, nullptr);
}

std::uint64_t TicksIn(IMAPIProp* object, ULONG tag) {
    return TicksOf(TimeOf(object, tag));
}

}  // namespace

TEST_F(StoreMessage, NothingIsSeenBeforeTheSaveAndEverythingAfterIt) {
    auto message = NewMessage(left.Get(), "Subject", std::string(3000, 'b'));
    EXPECT_FALSE(HasProp(message.Get(), PR_ENTRYID));
    EXPECT_EQ(SubjectsIn(left.Get()), "");
    ASSERT_EQ(message->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
    EXPECT_EQ(SubjectsIn(left.Get()), "Subject");
    auto again = Reopened(message.Get());
    EXPECT_EQ(TextOf(again.Get(), PR_BODY_A), std::string(3000, 'b'));
    EXPECT_EQ(BytesOf(again.Get(), PR_SEARCH_KEY).size(), 16u);
    EXPECT_EQ(BytesOf(again.Get(), PR_SEARCH_KEY), BytesOf(message.Get(), PR_SEARCH_KEY));
    EXPECT_EQ(BytesOf(again.Get(), PR_PARENT_ENTRYID), BytesOf(left.Get(), PR_ENTRYID));
    EXPECT_EQ(BytesOf(again.Get(), PR_ENTRYID).substr(4, 16), BytesOf(leftStore.Get(), PR_STORE_RECORD_KEY));
}

TEST_F(StoreMessage, EveryStorableTypeComesBackAsItWas) {
    auto message = NewMessage(left.Get(), "Types");
    GUID guid = IID_IMessage;
    LONG longs[] = {1, -2, 3};
    char one[] = "one", two[] = "zw\xC3\xB6lf", empty[] = "";
    char* texts[] = {one, two, empty};
    BYTE bytes[] = {0, 1, 255};
    SBinary binaries[] = {{3, bytes}, {0, nullptr}};
    std::array<SPropValue, 10> values{};
    const ULONG types[] = {PT_I2, PT_R4,    PT_DOUBLE,  PT_CURRENCY,   PT_BOOLEAN,
                           PT_I8, PT_CLSID, PT_MV_LONG, PT_MV_STRING8, PT_MV_BINARY};
    for (std::size_t i = 0; i < values.size(); ++i)
        values[i].ulPropTag = PROP_TAG(types[i], 0x6800 + static_cast<ULONG>(i));
    values[0].Value.i = -7;
    values[1].Value.flt = 1.5f;
    values[2].Value.dbl = -2.25;
    values[3].Value.cur.int64 = 123456789;
    values[4].Value.b = 5;
    values[5].Value.li.QuadPart = -1;
    values[6].Value.lpguid = &guid;
    values[7].Value.MVl = {3, longs};
    values[8].Value.MVszA = {3, texts};
    values[9].Value.MVbin = {2, binaries};
    ASSERT_EQ(message->SetProps(values.size(), values.data(), nullptr), S_OK);
    ASSERT_EQ(message->SaveChanges(KEEP_OPEN_READWRITE), S_OK);

    auto again = Reopened(message.Get());
    SizedSPropTagArray(10, tags) = {10, {}};
    for (std::size_t i = 0; i < values.size(); ++i)
        tags.aulPropTag[i] = values[i].ulPropTag;
    ULONG count = 0;
    LPSPropValue read = nullptr;
    ASSERT_EQ(again->GetProps(reinterpret_cast<LPSPropTagArray>(&tags), 0, &count, &read), S_OK);
    EXPECT_EQ(read[0].Value.i, -7);
    EXPECT_EQ(read[1].Value.flt, 1.5f);
    EXPECT_EQ(read[2].Value.dbl, -2.25);
    EXPECT_EQ(read[3].Value.cur.int64, 123456789);
    EXPECT_EQ(read[4].Value.b, 1);
    EXPECT_EQ(read[5].Value.li.QuadPart, -1);
    EXPECT_TRUE(*read[6].Value.lpguid == guid);
    ASSERT_EQ(read[7].Value.MVl.cValues, 3u);
    EXPECT_EQ(read[7].Value.MVl.lpl[1], -2);
    ASSERT_EQ(read[8].Value.MVszA.cValues, 3u);
    EXPECT_STREQ(read[8].Value.MVszA.lppszA[1], two);
    EXPECT_STREQ(read[8].Value.MVszA.lppszA[2], "");
    ASSERT_EQ(read[9].Value.MVbin.cValues, 2u);
    EXPECT_EQ(read[9].Value.MVbin.lpbin[0].lpb[2], 255);
    MAPIFreeBuffer(read);
}

TEST_F(StoreMessage, TextGoesInEitherWidthAndOtherTypesAreNotFound) {
    const std::wstring subject =
        L"Gr\u00FC\u00DF"
        L"e";
    auto message = NewMessage(left.Get(), Utf8FromWide(subject));
    LPSPropValue value = nullptr;
    ASSERT_EQ(HrGetOneProp(message.Get(), PR_SUBJECT_W, &value), S_OK);
    EXPECT_EQ(std::wstring(value->Value.lpszW), subject);
    MAPIFreeBuffer(value);
    EXPECT_EQ(HrGetOneProp(message.Get(), CHANGE_PROP_TYPE(PR_SUBJECT, PT_LONG), &value), MAPI_E_NOT_FOUND);
    SPropTagArray one = {1, {CHANGE_PROP_TYPE(PR_SUBJECT, PT_UNSPECIFIED)}};
    ULONG count = 0;
    ASSERT_EQ(message->GetProps(&one, MAPI_UNICODE, &count, &value), S_OK);
    EXPECT_EQ(value->ulPropTag, PR_SUBJECT_W);
    MAPIFreeBuffer(value);
    one.aulPropTag[0] = PROP_TAG(PT_LONG, 0x6801);
    ASSERT_EQ(message->GetProps(&one, 0, &count, &value), MAPI_W_ERRORS_RETURNED);
    EXPECT_EQ(value->ulPropTag, PROP_TAG(PT_ERROR, 0x6801));
    EXPECT_EQ(value->Value.err, MAPI_E_NOT_FOUND);
    MAPIFreeBuffer(value);
}

TEST_F(StoreMessage, ComputedPropertiesAnswerInTheProblemArray) {
    auto message = SavedMessage(left.Get(), "S");
    SPropValue value{};
    for (const ULONG tag : {PR_OBJECT_TYPE, PR_MESSAGE_SIZE, PR_ACCESS, PR_MESSAGE_FLAGS}) {
        value.ulPropTag = tag;
        EXPECT_EQ(SetProblem(message.Get(), value), MAPI_E_COMPUTED) << std::hex << tag;
    }
    value.ulPropTag = PR_DISPLAY_TO_A;
    value.Value.lpszA = const_cast<char*>("x");
    EXPECT_EQ(SetProblem(message.Get(), value), MAPI_E_COMPUTED);
    auto fresh = NewMessage(left.Get(), "F");
    EXPECT_EQ(SetLong(fresh.Get(), PR_MESSAGE_FLAGS, 0), S_OK);  // before its first save
    ASSERT_EQ(fresh->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
    EXPECT_EQ(LongOf(fresh.Get(), PR_MESSAGE_FLAGS), 0);
}

TEST_F(StoreMessage, ValuesAbove32KilobytesNeedAStream) {
    auto message = NewMessage(left.Get(), "Large");
    const std::string atLimit(32 * 1024, 'x'), above(32 * 1024 + 1, 'y');
    ASSERT_EQ(SetText(message.Get(), PR_BODY_A, atLimit), S_OK);
    ASSERT_EQ(SetStream(message.Get(), PR_RTF_COMPRESSED, above), S_OK);
    ASSERT_EQ(message->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
    auto again = Reopened(message.Get());
    EXPECT_EQ(TextOf(again.Get(), PR_BODY_A), atLimit);
    LPSPropValue value = nullptr;
    EXPECT_EQ(HrGetOneProp(again.Get(), PR_RTF_COMPRESSED, &value), MAPI_E_NOT_ENOUGH_MEMORY);
    EXPECT_EQ(StreamOf(again.Get(), PR_RTF_COMPRESSED), above);
    EXPECT_EQ(SetStream(again.Get(), PR_RTF_COMPRESSED, "short"), S_OK);
    EXPECT_EQ(BytesOf(again.Get(), PR_RTF_COMPRESSED), "short");
    EXPECT_EQ(SetStream(again.Get(), PR_BODY_A, std::string("zero ends\0", 10)), S_OK);
    EXPECT_EQ(StreamOf(again.Get(), PR_BODY_A), "zero ends");
    IUnknown* stream = nullptr;
    EXPECT_EQ(again->OpenProperty(PROP_TAG(PT_STRING8, 0x1013), &IID_IStream, 0, 0, &stream),
              MAPI_E_NOT_FOUND);
}

TEST_F(StoreMessage, StampingASavedMessageLeavesItsLargeValuesAlone) {
    auto message = SavedMessage(left.Get(), "Stamp", std::string(5000, 'b'));
    const ULONG tag = NamedTag(message.Get(), L"Stamp", PT_STRING8);
    ASSERT_EQ(SetText(message.Get(), tag, "1"), S_OK);
    ASSERT_EQ(message->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
    EXPECT_EQ(TextOf(Reopened(message.Get()).Get(), PR_BODY_A), std::string(5000, 'b'));
    SPropTagArray body = {1, {PR_BODY_A}};
    ASSERT_EQ(message->DeleteProps(&body, nullptr), S_OK);
    ASSERT_EQ(message->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
    EXPECT_FALSE(HasProp(Reopened(message.Get()).Get(), PR_BODY_A));
}

TEST_F(StoreMessage, ChangedOrDeletedBySomebodyElse) {
    auto first = SavedMessage(left.Get(), "Both");
    auto second = Reopened(first.Get());
    ASSERT_EQ(SetText(second.Get(), PR_SUBJECT_A, "Second"), S_OK);
    ASSERT_EQ(second->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
    ASSERT_EQ(SetText(first.Get(), PR_SUBJECT_A, "First"), S_OK);
    EXPECT_EQ(first->SaveChanges(KEEP_OPEN_READWRITE), MAPI_E_OBJECT_CHANGED);
    EXPECT_EQ(SubjectsIn(left.Get()), "Second");
    EXPECT_EQ(first->SaveChanges(KEEP_OPEN_READWRITE | FORCE_SAVE), S_OK);
    EXPECT_EQ(SubjectsIn(left.Get()), "First");
    ASSERT_EQ(DeleteBySubject(left.Get(), "First"), S_OK);
    ASSERT_EQ(SetText(first.Get(), PR_SUBJECT_A, "Gone"), S_OK);
    EXPECT_EQ(first->SaveChanges(KEEP_OPEN_READWRITE | FORCE_SAVE), MAPI_E_OBJECT_DELETED);
}

TEST_F(StoreMessage, KeptOpenForReadingOnly) {
    TestRef<IMessage> message;
    for (const ULONG flags : {ULONG{KEEP_OPEN_READONLY}, ULONG{0}, ULONG{FORCE_SAVE}}) {
        message = NewMessage(left.Get(), "RO");
        ASSERT_EQ(message->SaveChanges(flags), S_OK);
        EXPECT_EQ(TextOf(message.Get(), PR_SUBJECT_A), "RO");
        EXPECT_EQ(SetText(message.Get(), PR_SUBJECT_A, "x"), MAPI_E_NO_ACCESS);
        EXPECT_EQ(message->SaveChanges(flags), MAPI_E_NO_ACCESS);
    }
    std::string id = IdOf(message.Get());
    TestRef<IMessage> plain;
    ULONG type = 0;
    ASSERT_EQ(leftStore->OpenEntry(static_cast<ULONG>(id.size()), reinterpret_cast<LPENTRYID>(id.data()),
                                   nullptr, 0, &type, reinterpret_cast<IUnknown**>(plain.Out())),
              S_OK);
    EXPECT_EQ(type, static_cast<ULONG>(MAPI_MESSAGE));
    EXPECT_EQ(SetText(plain.Get(), PR_SUBJECT_A, "x"), MAPI_E_NO_ACCESS);
}

TEST_F(StoreMessage, TimesOfTheStoreNeverRepeat) {
    CClockOverride stands(FileTimeOf(132000000000000000));
    std::uint64_t last = 0;
    for (int i = 0; i < 5; ++i) {
        auto message = SavedMessage(left.Get(), "T");
        const std::uint64_t modified = TicksIn(message.Get(), PR_LAST_MODIFICATION_TIME);
        EXPECT_GT(modified, last);
        last = modified;
        ASSERT_EQ(SetText(message.Get(), PR_SUBJECT_A, "T2"), S_OK);
        ASSERT_EQ(message->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
        EXPECT_GT(TicksIn(message.Get(), PR_LAST_MODIFICATION_TIME), last);
        last = TicksIn(message.Get(), PR_LAST_MODIFICATION_TIME);
    }
}

TEST_F(StoreMessage, TimesSetByTheCallerHoldForThatSave) {
    auto message = NewMessage(left.Get(), "T");
    ASSERT_EQ(SetTime(message.Get(), PR_CREATION_TIME, FileTimeOf(1000)), S_OK);
    ASSERT_EQ(SetTime(message.Get(), PR_LAST_MODIFICATION_TIME, FileTimeOf(2000)), S_OK);
    ASSERT_EQ(message->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
    auto again = Reopened(message.Get());
    EXPECT_EQ(TicksIn(again.Get(), PR_CREATION_TIME), 1000u);
    EXPECT_EQ(TicksIn(again.Get(), PR_LAST_MODIFICATION_TIME), 2000u);
    ASSERT_EQ(SetText(again.Get(), PR_SUBJECT_A, "T2"), S_OK);
    ASSERT_EQ(again->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
    EXPECT_EQ(TicksIn(again.Get(), PR_CREATION_TIME), 1000u);
    EXPECT_GT(TicksIn(again.Get(), PR_LAST_MODIFICATION_TIME), 2000u);
}

TEST_F(StoreMessage, RecipientsAreAddedModifiedRemovedAndReplaced) {
    auto message = NewMessage(left.Get(), "R");
    EXPECT_EQ(ModifyRecipient(message.Get(), MODRECIP_ADD, "ann@x", MAPI_TO), S_OK);
    EXPECT_EQ(ModifyRecipient(message.Get(), MODRECIP_ADD, "bob@x", MAPI_CC), S_OK);
    EXPECT_EQ(ModifyRecipient(message.Get(), MODRECIP_ADD, "cid@x", MAPI_TO), S_OK);
    EXPECT_EQ(ModifyRecipient(message.Get(), MODRECIP_MODIFY, "bea@x", MAPI_CC, 1), S_OK);
    EXPECT_EQ(ModifyRecipient(message.Get(), MODRECIP_MODIFY, "dan@x", MAPI_CC, 9), MAPI_E_NOT_FOUND);
    ASSERT_EQ(message->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
    auto again = Reopened(message.Get());
    EXPECT_EQ(RecipientNames(again.Get()), "ann@x bea@x cid@x");
    EXPECT_EQ(TextOf(again.Get(), PR_DISPLAY_TO_A), "ann@x; cid@x");
    EXPECT_EQ(TextOf(again.Get(), PR_DISPLAY_CC_A), "bea@x");
    EXPECT_EQ(TextOf(again.Get(), PR_DISPLAY_BCC_A), "");
    EXPECT_EQ(ModifyRecipient(again.Get(), MODRECIP_REMOVE, "", MAPI_TO, 0), S_OK);
    EXPECT_EQ(RecipientNames(again.Get()), "bea@x cid@x");
    EXPECT_EQ(ModifyRecipient(again.Get(), 0, "eve@x", MAPI_BCC), S_OK);
    ASSERT_EQ(again->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
    EXPECT_EQ(RecipientNames(Reopened(message.Get()).Get()), "eve@x");
    EXPECT_EQ(TextOf(again.Get(), PR_DISPLAY_TO_A), "");
}

TEST_F(StoreMessage, AttachmentsShowAfterTheirSaveAndLastAfterTheMessages) {
    auto message = NewMessage(left.Get(), "A");
    auto attach = AddAttachment(message.Get(), "a.txt", std::string(70000, 'a'));
    EXPECT_EQ(AttachmentCount(message.Get()), 0u);
    ASSERT_EQ(attach->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
    EXPECT_EQ(AttachmentCount(message.Get()), 1u);
    ASSERT_EQ(message->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
    EXPECT_TRUE(LongOf(message.Get(), PR_HASATTACH));
    auto again = Reopened(message.Get());
    TestRef<IAttach> opened;
    ASSERT_EQ(again->OpenAttach(0, nullptr, MAPI_BEST_ACCESS, opened.Out()), S_OK);
    EXPECT_EQ(StreamOf(opened.Get(), PR_ATTACH_DATA_BIN), std::string(70000, 'a'));
    ASSERT_EQ(SetText(opened.Get(), PR_ATTACH_FILENAME_A, "b.txt"), S_OK);
    ASSERT_EQ(opened->SaveChanges(0), S_OK);
    auto other = AddAttachment(again.Get(), "c.txt", "c");
    ASSERT_EQ(other->SaveChanges(0), S_OK);
    EXPECT_EQ(AttachmentCount(Reopened(message.Get()).Get()), 1u);  // not before the message is saved
    ASSERT_EQ(again->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
    auto third = Reopened(message.Get());
    EXPECT_EQ(AttachmentCount(third.Get()), 2u);
    ASSERT_EQ(third->OpenAttach(0, nullptr, 0, opened.Out()), S_OK);
    EXPECT_EQ(TextOf(opened.Get(), PR_ATTACH_FILENAME_A), "b.txt");
    EXPECT_EQ(StreamOf(opened.Get(), PR_ATTACH_DATA_BIN).size(), 70000u);
    EXPECT_EQ(third->DeleteAttach(0, 0, nullptr, 0), S_OK);
    EXPECT_EQ(third->DeleteAttach(0, 0, nullptr, 0), MAPI_E_NOT_FOUND);
    EXPECT_EQ(third->DeleteAttach(1, 0, nullptr, 0), S_OK);
    ASSERT_EQ(third->SaveChanges(0), S_OK);
    EXPECT_FALSE(LongOf(Reopened(message.Get()).Get(), PR_HASATTACH));
}

TEST_F(StoreMessage, EmbeddedMessagesNestAndTravel) {
    auto message = NewMessage(left.Get(), "Outer");
    const ULONG tag = NamedTag(message.Get(), L"Inner name", PT_STRING8);
    TestRef<IAttach> attach, inner;
    ULONG number = 0;
    ASSERT_EQ(message->CreateAttach(nullptr, 0, &number, attach.Out()), S_OK);
    ASSERT_EQ(SetLong(attach.Get(), PR_ATTACH_METHOD, ATTACH_EMBEDDED_MSG), S_OK);
    EXPECT_FALSE(EmbeddedIn(attach.Get(), MAPI_MODIFY));
    auto embedded = EmbeddedIn(attach.Get(), MAPI_CREATE | MAPI_MODIFY);
    ASSERT_TRUE(embedded);
    ASSERT_EQ(SetText(embedded.Get(), PR_SUBJECT_A, "Embedded"), S_OK);
    ASSERT_EQ(SetText(embedded.Get(), tag, "named"), S_OK);
    ASSERT_EQ(SetText(embedded.Get(), PR_BODY_A, std::string(2000, 'e')), S_OK);
    ASSERT_EQ(ModifyRecipient(embedded.Get(), MODRECIP_ADD, "deep@x", MAPI_TO), S_OK);
    inner = AddAttachment(embedded.Get(), "deep.txt", "deep");
    ASSERT_EQ(inner->SaveChanges(0), S_OK);
    ASSERT_EQ(embedded->SaveChanges(0), S_OK);
    ASSERT_EQ(attach->SaveChanges(0), S_OK);
    ASSERT_EQ(message->SaveChanges(KEEP_OPEN_READWRITE), S_OK);

    NamedTag(right.Get(), L"Something else", PT_LONG);  // the other store numbers its names differently
    auto copy = NewMessage(right.Get(), "x");
    ASSERT_EQ(CopyAll(Reopened(message.Get()).Get(), copy.Get()), S_OK);
    ASSERT_EQ(copy->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
    auto again = OpenTestMessage(rightStore.Get(), IdOf(copy.Get()));
    ASSERT_EQ(again->OpenAttach(0, nullptr, 0, attach.Out()), S_OK);
    embedded = EmbeddedIn(attach.Get(), 0);
    ASSERT_TRUE(embedded);
    EXPECT_EQ(TextOf(embedded.Get(), PR_SUBJECT_A), "Embedded");
    EXPECT_EQ(TextOf(embedded.Get(), PR_BODY_A), std::string(2000, 'e'));
    EXPECT_EQ(TextOf(embedded.Get(), PR_DISPLAY_TO_A), "deep@x");
    const ULONG mapped = NamedTag(right.Get(), L"Inner name", PT_STRING8);
    EXPECT_NE(mapped, tag);
    EXPECT_EQ(TextOf(embedded.Get(), mapped), "named");
    ASSERT_EQ(embedded->OpenAttach(0, nullptr, 0, inner.Out()), S_OK);
    EXPECT_EQ(BytesOf(inner.Get(), PR_ATTACH_DATA_BIN), "deep");
}

TEST_F(StoreMessage, CopyToCarriesContentsAndSearchKeyButNotTheTimes) {
    auto source = NewMessage(left.Get(), "RE: Source", std::string(1500, 'b'));
    NamedTag(right.Get(), L"First here", PT_LONG);
    const ULONG tag = NamedTag(source.Get(), L"Name", PT_STRING8);
    ASSERT_EQ(SetText(source.Get(), tag, "value"), S_OK);
    ASSERT_EQ(SetTime(source.Get(), PR_CREATION_TIME, FileTimeOf(1000)), S_OK);
    ASSERT_EQ(SetTime(source.Get(), PR_LAST_MODIFICATION_TIME, FileTimeOf(2000)), S_OK);
    ASSERT_EQ(ModifyRecipient(source.Get(), MODRECIP_ADD, "ann@x", MAPI_TO), S_OK);
    ASSERT_EQ(AddAttachment(source.Get(), "a", "data")->SaveChanges(0), S_OK);
    ASSERT_EQ(source->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
    auto target = NewMessage(right.Get(), "old");
    ASSERT_EQ(ModifyRecipient(target.Get(), MODRECIP_ADD, "old@x", MAPI_TO), S_OK);
    LPSPropProblemArray problems = nullptr;
    ASSERT_EQ(source->CopyTo(0, nullptr, nullptr, 0, nullptr, &IID_IMessage, target.Get(), 0, &problems),
              S_OK);
    EXPECT_EQ(problems, nullptr);
    ASSERT_EQ(target->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
    EXPECT_EQ(TextOf(target.Get(), PR_SUBJECT_A), "RE: Source");
    EXPECT_EQ(TextOf(target.Get(), PR_NORMALIZED_SUBJECT_A), "Source");
    EXPECT_EQ(TextOf(target.Get(), PR_BODY_A), std::string(1500, 'b'));
    EXPECT_EQ(TextOf(target.Get(), NamedTag(right.Get(), L"Name", PT_STRING8)), "value");
    EXPECT_EQ(BytesOf(target.Get(), PR_SEARCH_KEY), BytesOf(source.Get(), PR_SEARCH_KEY));
    EXPECT_GT(TicksIn(target.Get(), PR_CREATION_TIME), 2000u);
    EXPECT_GT(TicksIn(target.Get(), PR_LAST_MODIFICATION_TIME), 2000u);
    EXPECT_EQ(RecipientNames(target.Get()), "ann@x");
    EXPECT_EQ(AttachmentCount(target.Get()), 1u);
}

TEST_F(StoreMessage, CopyToLeavesOutWhatIsExcluded) {
    auto source = NewMessage(left.Get(), "Subject", "body");
    ASSERT_EQ(ModifyRecipient(source.Get(), MODRECIP_ADD, "ann@x", MAPI_TO), S_OK);
    ASSERT_EQ(AddAttachment(source.Get(), "a", "data")->SaveChanges(0), S_OK);
    auto target = NewMessage(right.Get(), "kept");
    SizedSPropTagArray(3, exclude) = {3, {PR_SUBJECT_W, PR_MESSAGE_RECIPIENTS, PR_MESSAGE_ATTACHMENTS}};
    ASSERT_EQ(CopyAll(source.Get(), target.Get(), reinterpret_cast<LPSPropTagArray>(&exclude)), S_OK);
    EXPECT_EQ(TextOf(target.Get(), PR_SUBJECT_A), "kept");
    EXPECT_EQ(TextOf(target.Get(), PR_BODY_A), "body");
    EXPECT_EQ(RecipientNames(target.Get()), "");
    EXPECT_EQ(AttachmentCount(target.Get()), 0u);
    SPropTagArray include = {1, {PR_SUBJECT_A}};
    ASSERT_EQ(source->CopyProps(&include, 0, nullptr, &IID_IMessage, target.Get(), MAPI_NOREPLACE, nullptr),
              S_OK);
    EXPECT_EQ(TextOf(target.Get(), PR_SUBJECT_A), "kept");
    ASSERT_EQ(source->CopyProps(&include, 0, nullptr, &IID_IMessage, target.Get(), 0, nullptr), S_OK);
    EXPECT_EQ(TextOf(target.Get(), PR_SUBJECT_A), "Subject");
    SizedSPropTagArray(2, computed) = {2, {PR_SUBJECT_A, PR_MESSAGE_SIZE}};
    LPSPropProblemArray problems = nullptr;
    ASSERT_EQ(source->CopyProps(reinterpret_cast<LPSPropTagArray>(&computed), 0, nullptr, &IID_IMessage,
                                target.Get(), 0, &problems),
              S_OK);
    ASSERT_TRUE(problems && problems->cProblem == 1);
    EXPECT_EQ(problems->aProblem[0].ulIndex, 1u);
    EXPECT_EQ(problems->aProblem[0].scode, MAPI_E_COMPUTED);
    MAPIFreeBuffer(problems);
    EXPECT_EQ(CopyAll(source.Get(), source.Get()), MAPI_E_NO_ACCESS);
}

TEST_F(StoreMessage, NamedPropertiesCountFrom0x8000InOrderOfFirstUse) {
    auto message = NewMessage(left.Get(), "N");
    const GUID set = IID_IMAPITable;
    EXPECT_EQ(PROP_ID(NamedTag(message.Get(), L"One", PT_LONG)), 0x8000u);
    EXPECT_EQ(PROP_ID(NamedTag(message.Get(), set, 0x8205, PT_LONG)), 0x8001u);
    EXPECT_EQ(PROP_ID(NamedTag(left.Get(), L"One", PT_STRING8)), 0x8000u);
    EXPECT_EQ(PROP_ID(NamedTag(leftStore.Get(), L"one", PT_LONG)), 0x8002u);  // names keep their case
    EXPECT_EQ(PROP_ID(NamedTag(right.Get(), set, 0x8205, PT_LONG)), 0x8000u);

    GUID strings = PS_PUBLIC_STRINGS;
    MAPINAMEID unknown{};
    unknown.lpguid = &strings;
    unknown.ulKind = MNID_STRING;
    unknown.Kind.lpwstrName = const_cast<wchar_t*>(L"Unknown");
    LPMAPINAMEID asked[] = {&unknown};
    LPSPropTagArray tags = nullptr;
    ASSERT_EQ(message->GetIDsFromNames(1, asked, 0, &tags), MAPI_W_ERRORS_RETURNED);
    EXPECT_EQ(PROP_TYPE(tags->aulPropTag[0]), PT_ERROR);
    MAPIFreeBuffer(tags);

    SizedSPropTagArray(3, ids) = {3, {PROP_TAG(PT_LONG, 0x8001), PROP_TAG(PT_LONG, 0x9000), PR_SUBJECT_A}};
    tags = reinterpret_cast<LPSPropTagArray>(&ids);
    ULONG count = 0;
    LPMAPINAMEID* names = nullptr;
    ASSERT_EQ(message->GetNamesFromIDs(&tags, nullptr, 0, &count, &names), MAPI_W_ERRORS_RETURNED);
    ASSERT_EQ(count, 3u);
    EXPECT_EQ(names[0]->Kind.lID, 0x8205);
    EXPECT_TRUE(*names[0]->lpguid == set);
    EXPECT_EQ(names[1], nullptr);
    EXPECT_TRUE(*names[2]->lpguid == PS_MAPI);
    MAPIFreeBuffer(names);
}

TEST_F(StoreMessage, ReadFlagIsKeptApartFromTheContents) {
    auto message = SavedMessage(left.Get(), "Read");
    auto other = Reopened(message.Get());
    ASSERT_EQ(other->SetReadFlag(CLEAR_READ_FLAG), S_OK);
    EXPECT_EQ(LongOf(left.Get(), PR_CONTENT_UNREAD), 1);
    ASSERT_EQ(SetText(message.Get(), PR_SUBJECT_A, "Changed"), S_OK);
    EXPECT_EQ(message->SaveChanges(0), S_OK);  // no conflict with the flag
    EXPECT_EQ(LongOf(Reopened(message.Get()).Get(), PR_MESSAGE_FLAGS) & MSGFLAG_READ, 0);
}
