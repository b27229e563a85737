#include "FakeMapi.h"

#include <Platform/UserInterface.h>
#include <gtest/gtest.h>

namespace {

using namespace fakes;

HRESULT Hr(unsigned code) {
    return static_cast<HRESULT>(code);
}

TEST(ErrorNames, AreTheFirstSymbolOfTheHeadersAndMapiGoesFirst) {
    EXPECT_EQ(ErrorName(0), "");
    EXPECT_EQ(ErrorName(Hr(0x8004010F)), "MAPI_E_NOT_FOUND");
    EXPECT_EQ(ErrorName(Hr(0x80040110)), "MAPI_E_VERSION");
    EXPECT_EQ(ErrorName(Hr(0x80040700)), "MAPI_E_AMBIGUOUS_RECIP");
    EXPECT_EQ(ErrorName(MAPI_W_ERRORS_RETURNED), "MAPI_W_ERRORS_RETURNED");
    EXPECT_EQ(ErrorName(Hr(0x80070005)), "E_ACCESSDENIED");
    EXPECT_EQ(ErrorName(Hr(0x80070057)), "E_INVALIDARG");
    EXPECT_EQ(ErrorName(Hr(0x80030002)), "STG_E_FILENOTFOUND");
    EXPECT_EQ(ErrorName(2), "ERROR_FILE_NOT_FOUND");
    EXPECT_EQ(ErrorName(10054), "WSAECONNRESET");
}

TEST(ErrorNames, UnknownCodeIsLowerCaseHexadecimal) {
    EXPECT_EQ(ErrorName(Hr(0x8004ABCD)), "Unknown Error 8004abcd");
    EXPECT_EQ(ErrorNameOrSystemText(Hr(0x8004ABCD)), "");
    EXPECT_EQ(ErrorNameOrSystemText(Hr(0x8004010F)), "MAPI_E_NOT_FOUND");
}

TEST(ErrorHelpers, OnlyNegativeResultsFail) {
    EXPECT_EQ(ThrowOnFailure(MAPI_W_ERRORS_RETURNED, __FILE__, __LINE__), MAPI_W_ERRORS_RETURNED);
    EXPECT_EQ(FailedHr(MAPI_W_ERRORS_RETURNED, "x", __FILE__, __LINE__), 0);
    EXPECT_EQ(SucceededHr(S_FALSE, nullptr, __FILE__, __LINE__), 1);
    EXPECT_EQ(FailedHr(Hr(MAPI_E_BUSY), nullptr, __FILE__, __LINE__), Hr(MAPI_E_BUSY));
    EXPECT_EQ(SucceededHr(Hr(MAPI_E_BUSY), nullptr, __FILE__, __LINE__), 0);
}

TEST(ErrorHelpers, TheExceptionCarriesCodeAndObjectAndNoContext) {
    CComPtr<CFakeObject> object;
    object.Attach(new CFakeObject);
    try {
        THROW_ON_FAILURE_FOR(Hr(MAPI_E_BUSY), object.Get());
        FAIL();
    } catch (const CMAPIException& e) {
        EXPECT_EQ(e.Hr(), Hr(MAPI_E_BUSY));
        EXPECT_EQ(e.Context(), "");
        EXPECT_EQ(e.Object(), object.Get());
        EXPECT_EQ(object->References(), 1u);
    }
    EXPECT_THROW(THROW_ON_FAILURE(Hr(E_FAIL)), CMAPIException);
}

TEST(ExtendedErrors, AreAskedOfTheObjectButTheTextStaysThePlainName) {
    CComPtr<CFakeObject> object;
    object.Attach(new CFakeObject);
    const CMAPIException plain(Hr(MAPI_E_BUSY), "x", object.Get());
    EXPECT_EQ(object->queries, 0);
    const CMAPIException e(Hr(MAPI_E_EXTENDED_ERROR), "x", object.Get());
    EXPECT_EQ(object->lastErrorCalls, 1);
    EXPECT_EQ(object->References(), 1u);
    object.Free();  // the exception outlives the object
    EXPECT_EQ(e.GetErrorText(), "MAPI_E_EXTENDED_ERROR");
    EXPECT_EQ(e.ExtendedText(),
              "MAPI_E_EXTENDED_ERROR\nErr=disk on fire\nComponent=store\nContext=3,LowLevel=7");
    EXPECT_EQ(CMAPIException(Hr(MAPI_E_EXTENDED_ERROR), nullptr, nullptr).GetErrorText(),
              "MAPI_E_EXTENDED_ERROR");
}

TEST(Reports, NameInTheCaptionAndOperationInTheBody) {
    CRecordingUserInterface ui;
    const CMAPIException bare(Hr(MAPI_E_BUSY), nullptr, nullptr);
    const CMAPIException named(Hr(MAPI_E_BUSY), "CGenMapiPropPtr::GetProps", nullptr);
    ReportException(bare);
    ReportException(named, "WriteSyncFile");
    ShowError(Hr(MAPI_E_NOT_FOUND));
    NoteException(named, "stage");
    ASSERT_EQ(ui.messages.size(), 3u);
    EXPECT_EQ(ui.messages[0].text, "");
    EXPECT_EQ(ui.messages[0].caption, "MAPI_E_BUSY");
    EXPECT_EQ(ui.messages[1].text, "WriteSyncFile\r\nin CGenMapiPropPtr::GetProps");
    EXPECT_EQ(ui.messages[2].text, "MAPI_E_NOT_FOUND");
    EXPECT_EQ(ui.messages[2].caption, "Error");
}

std::string g_hooked;

TEST(Reports, AHookTakesThePlaceOfTheBox) {
    CRecordingUserInterface ui;
    EXPECT_EQ(
        SetReportHook([](const char* text, const CMAPIException& e) { g_hooked = text + e.GetErrorText(); }),
        nullptr);
    ReportException(CMAPIException(Hr(MAPI_E_BUSY), "x", nullptr), "stage ");
    EXPECT_NE(SetReportHook(nullptr), nullptr);
    EXPECT_EQ(g_hooked, "stage MAPI_E_BUSY");
    EXPECT_TRUE(ui.messages.empty());
}

}  // namespace
