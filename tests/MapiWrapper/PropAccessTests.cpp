// Property objects: who throws and who answers a default, batch mode, named properties, references.
#include "FakeStore.h"

#include <Platform/UserInterface.h>
#include <gtest/gtest.h>

namespace {

using namespace fakes;

const HRESULT kFailure = static_cast<HRESULT>(MAPI_E_NO_ACCESS);

class PropAccess : public NoFakeOutlives {
protected:
    PropAccess() { m_prop.Attach(m_object); }
    template <class Call>
    void ExpectFailure(const char* context, Call call) {
        ExpectThrows(context, call, kFailure);
    }
    CFakeObject* m_object = new CFakeObject;
    IMAPIPropPtr m_prop;
};

TEST_F(PropAccess, CopyAssignMoveAndConversionKeepTheCount) {
    EXPECT_EQ(m_object->References(), 1u);
    {
        IMAPIPropPtr copy(m_prop);
        EXPECT_EQ(m_object->References(), 2u);
        IMAPIPropPtr assigned;
        assigned = copy;
        EXPECT_EQ(m_object->References(), 3u);
        IMAPIPropPtr moved(std::move(assigned));
        EXPECT_FALSE(assigned.IsValid());
        EXPECT_EQ(m_object->References(), 3u);
        moved = moved;
        EXPECT_EQ(m_object->References(), 3u);
        EXPECT_FALSE(moved.As<IMessagePtr>().IsValid());
        IMAPIPropPtr added(m_object);
        EXPECT_EQ(m_object->References(), 4u);
    }
    EXPECT_EQ(m_object->References(), 1u);
    CFakeMessage* message = new CFakeMessage;
    IMAPIPropPtr generic;
    generic.Attach(message);
    IMessagePtr asMessage = generic.As<IMessagePtr>();
    EXPECT_EQ(message->References(), 2u);
    generic = asMessage;
    EXPECT_EQ(message->References(), 2u);
}

TEST_F(PropAccess, TheThrowingAccessorsNameThemselves) {
    m_object->getResult = kFailure;
    ExpectFailure("CGenMapiPropPtr::GetProps", [&] { m_prop.GetProps({PR_SUBJECT_A}); });
    ExpectFailure("CGenMapiPropPtr::GetLongProp", [&] { m_prop.GetLongProp(PR_IMPORTANCE); });
    ExpectFailure("GetStrProp", [&] { m_prop.GetStrProp(PR_SUBJECT_A); });
    ExpectFailure("", [&] { m_prop.GetBinProp(PR_ENTRYID); });
    m_object->setResult = kFailure;
    ExpectFailure("CGenMapiPropPtr::SetProp", [&] { m_prop.SetProp(PR_IMPORTANCE, 1); });
    ExpectFailure("CGenMapiPropPtr::SetProp", [&] { m_prop.SetProp(PR_ENTRYID, View("x")); });
    ExpectFailure("CGenMapiPropPtr::SetProp", [&] { m_prop.SetProp(PR_IMPORTANCE, Number(PR_PRIORITY, 1)); });
    ExpectFailure("CGenMapiPropPtr::SetLongProp", [&] { m_prop.SetLongProp(PR_IMPORTANCE, 1); });
    ExpectFailure("CGenMapiPropPtr::SetLongProp",
                  [&] { CGenMapiPropPtr::SetLongProp(m_object, PR_IMPORTANCE, 1); });
    ExpectFailure("", [&] { m_prop.SetStrProp(PR_SUBJECT_A, "x"); });
    ExpectFailure("", [&] { m_prop.SetWideProp(PR_SUBJECT_W, L"x"); });
    m_object->saveResult = kFailure;
    ExpectFailure("", [&] { m_prop.SaveChanges(); });
}

TEST_F(PropAccess, TheOthersAnswerADefault) {
    m_object->getResult = kFailure;
    EXPECT_EQ(m_prop.GetLongPropOr0(PR_IMPORTANCE), 0);
    EXPECT_EQ(m_prop.GetStrPropOrEmpty(PR_SUBJECT_A), "");
    CMapiPropValues values;
    EXPECT_EQ(m_prop.GetPropsHr(0, values, {PR_SUBJECT_A}), kFailure);
    EXPECT_EQ(m_prop.GetNamedLong(L"X", 42), 42);
    EXPECT_EQ(m_prop.GetNamedStr(L"X", nullptr), "");
    CVariant variant(true);
    EXPECT_EQ(HrGetProp(m_object, PR_SUBJECT_A, variant), kFailure);
    EXPECT_TRUE(variant.IsEmpty());
}

TEST_F(PropAccess, AnotherTypeIsNoError) {
    m_object->values[PR_IMPORTANCE] = Number(PR_IMPORTANCE, 5);
    m_object->values[PR_SUBJECT_W] = CMapiPropValue(PR_SUBJECT_W);
    m_object->values[PR_SUBJECT_W].Get()->Value.lpszW = const_cast<wchar_t*>(L"wide");
    EXPECT_EQ(m_prop.GetStrProp(PR_IMPORTANCE), "");
    EXPECT_TRUE(m_prop.GetBinProp(PR_IMPORTANCE).IsEmpty());
    EXPECT_EQ(m_prop.GetStrProp(PR_SUBJECT_W), "");
    EXPECT_EQ(m_prop.GetStrPropOrEmpty(PR_SUBJECT_W), "wide");
    EXPECT_EQ(m_prop.GetLongProp(PR_IMPORTANCE), 5);
    const CMapiPropValues cells = m_prop.GetProps({PR_IMPORTANCE, PR_ENTRYID});  // a warning, no failure
    EXPECT_EQ(cells[0].Long(), 5);
    EXPECT_EQ(cells[1].Type(), static_cast<ULONG>(PT_ERROR));
    EXPECT_TRUE(cells[2].IsNull());
    m_object->values[PR_SUBJECT_W].Get()->Value.lpszW = nullptr;
}

TEST_F(PropAccess, NullTextDoesNotTouchTheObject) {
    m_prop.SetStrProp(PR_SUBJECT_A, static_cast<const char*>(nullptr));
    m_prop.SetWideProp(PR_SUBJECT_W, nullptr);
    EXPECT_TRUE(m_object->setTags.empty());
    IMAPIPropPtr().SetStrProp(PR_SUBJECT_A, static_cast<const char*>(nullptr));
}

TEST_F(PropAccess, AnEmptyWrapperReadsAsNothingAndIsNotDereferenced) {
    IMAPIPropPtr none;
    CMapiPropValue value;
    EXPECT_EQ(none.GetOneProp(PR_SUBJECT_A, value), 1);
    EXPECT_EQ(none.GetLongProp(PR_IMPORTANCE), 0);
    EXPECT_EQ(none.GetStrProp(PR_SUBJECT_A), "");
    EXPECT_TRUE(none.GetBinProp(PR_ENTRYID).IsEmpty());
    EXPECT_EQ(none.GetNamedLong(L"X", 3), 3);
    EXPECT_THROW(none.SetLongProp(PR_IMPORTANCE, 1), CNullAccess);
    EXPECT_THROW(none.SaveChanges(), CNullAccess);
    EXPECT_THROW(none.GetProps({PR_SUBJECT_A}), CNullAccess);
    EXPECT_THROW(none.GetIDFromName(PS_PUBLIC_STRINGS, L"X", PT_LONG), CNullAccess);
    EXPECT_THROW(m_prop.SetProp(PR_IMPORTANCE, CMapiPropValue()), CNullAccess);
}

TEST_F(PropAccess, BatchFlushesFortyNineBeforeTheFiftieth) {
    m_prop.SetBatch(true);
    for (ULONG i = 0; i < 49; ++i)
        m_prop.SetLongProp(PROP_TAG(PT_LONG, 0x6000 + i), static_cast<LONG>(i));
    EXPECT_TRUE(m_object->setTags.empty());
    EXPECT_EQ(m_prop.GatheredCount(), 49u);
    m_prop.SetLongProp(PROP_TAG(PT_LONG, 0x6100), 1);
    ASSERT_EQ(m_object->setTags.size(), 1u);
    EXPECT_EQ(m_object->setTags[0].size(), 49u);
    EXPECT_EQ(m_prop.GatheredCount(), 1u);
    m_prop.SaveChanges(KEEP_OPEN_READWRITE);
    EXPECT_EQ(m_object->setTags.size(), 2u);
    EXPECT_EQ(m_object->saves, std::vector<ULONG>{KEEP_OPEN_READWRITE});
    for (LONG i = 0; i < 49; ++i)
        EXPECT_EQ(m_prop.GetLongProp(PROP_TAG(PT_LONG, 0x6000 + static_cast<ULONG>(i))), i);
}

TEST_F(PropAccess, BatchReadsTheFirstGatheredValueAndCopiesDeep) {
    m_prop.SetBatch(true);
    std::string text = "first";
    m_prop.SetStrProp(PR_SUBJECT_A, text);
    text = "second";
    m_prop.SetStrProp(PR_SUBJECT_A, text);
    EXPECT_EQ(m_prop.GetStrProp(PR_SUBJECT_A), "first");
    EXPECT_EQ(m_object->getCalls, 0);
    m_object->values[PR_IMPORTANCE] = Number(PR_IMPORTANCE, 5);
    EXPECT_EQ(m_prop.GetLongProp(PR_IMPORTANCE), 5);  // not gathered: from the object
    const IMAPIPropPtr copy(m_prop);
    EXPECT_TRUE(copy.Batch());
    EXPECT_EQ(copy.GatheredCount(), 0u);
    const IMAPIPropPtr moved(std::move(m_prop));
    EXPECT_EQ(moved.GatheredCount(), 2u);
    m_prop = moved;
}

TEST_F(PropAccess, AFailedFlushIsReportedAndSwallowed) {
    CRecordingUserInterface ui;
    m_prop.SetBatch(true);
    m_prop.SetLongProp(PR_IMPORTANCE, 1);
    m_object->setResult = kFailure;
    m_prop.SaveProps();
    ASSERT_EQ(ui.messages.size(), 1u);
    EXPECT_EQ(ui.messages[0].text, "SaveProps");
    EXPECT_EQ(m_prop.GatheredCount(), 0u);
    m_prop.SetLongProp(PR_IMPORTANCE, 1);  // lost with the wrapper
}

TEST_F(PropAccess, NamedPropertiesAreCreatedInPublicStrings) {
    m_prop.SetNamedStr(L"LarchID", "id");
    m_prop.SetNamedValue(L"Count", PT_LONG, 7);
    EXPECT_EQ(m_prop.GetNamedStr(L"LarchID"), "id");
    EXPECT_EQ(m_prop.GetNamedLong(L"Count"), 7);
    EXPECT_EQ(m_prop.GetIDFromName(PS_PUBLIC_STRINGS, L"LarchID", PT_STRING8), 0x8001001Eu);
    EXPECT_EQ(CGenMapiPropPtr::GetIDFromName(m_object, PS_PUBLIC_STRINGS, L"Count", PT_LONG), 0x80020003u);
    EXPECT_THROW(m_prop.GetNamedStr(L"Unset"), CMAPIException);
    m_object->namesEmpty = true;
    ExpectThrows(
        "CGenMapiPropPtr::GetIDFromName",
        [&] { m_prop.GetIDFromName(PS_PUBLIC_STRINGS, L"LarchID", PT_STRING8); },
        static_cast<HRESULT>(MAPI_E_NOT_FOUND));
}

TEST_F(PropAccess, SeveralNamesAreOneCall) {
    CNamedTags tags;
    const size_t id = tags.Add(L"LarchID", PT_STRING8);
    const size_t eid = tags.Add(L"LarchEid", PT_BINARY);
    const size_t number =
        tags.Add(0x8503, PT_BOOLEAN, GUID{0x00062008, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}});
    tags.Resolve(m_prop, 0);
    EXPECT_EQ(tags.Tag(id), 0u);  // unknown and not created
    tags.Resolve(m_prop);
    EXPECT_EQ(m_object->nameCalls, 2);
    EXPECT_EQ(tags.Tag(id), 0x8001001Eu);
    EXPECT_EQ(tags.Tag(eid), 0x80020102u);
    EXPECT_EQ(PROP_TYPE(tags.Tag(number)), static_cast<ULONG>(PT_BOOLEAN));
    EXPECT_EQ(tags.Tag(99), 0u);

    // A store that has no room for another name says so by the tag alone. What it knows is found still.
    m_object->namesFull = true;
    tags.Resolve(m_prop);
    EXPECT_EQ(tags.Tag(eid), 0x80020102u);
    tags.Add(L"VellumRun", PT_SYSTIME);
    EXPECT_THROW(tags.Resolve(m_prop), CMAPIException);
}

}  // namespace
