// RTF streams and RTFSync on messages of a store.
#include <MapiStore/Values/Lzfu.h>
#include <MapiStore/Values/RtfText.h>
#include <Platform/Machine.h>
#include <Platform/Utf8.h>
#include <support/StoreFixture.h>

namespace {

class RtfSync : public ::testing::Test {
protected:
    void SetUp() override {
        session = profile.LogOn();
        store = OpenTestStore(session.Get(), "Store 1");
        message = NewMessage(OpenReceiveFolder(store.Get()).Get(), "rtf");
    }
    TestRef<IStream> Raw(ULONG tag, ULONG flags) {
        TestRef<IUnknown> unknown;
        EXPECT_EQ(S_OK, message->OpenProperty(tag, &IID_IStream, 0, flags, unknown.Out()));
        TestRef<IStream> stream;
        if (unknown) unknown->QueryInterface(IID_IStream, reinterpret_cast<void**>(stream.Out()));
        return stream;
    }
    // As a caller does who releases until nothing is left.
    void WriteRtf(const std::string& rtf, ULONG flags) {
        auto raw = Raw(PR_RTF_COMPRESSED, MAPI_MODIFY | MAPI_CREATE);
        LPSTREAM wrapped = nullptr;
        ASSERT_EQ(S_OK, WrapCompressedRTFStream(raw.Get(), MAPI_MODIFY | flags, &wrapped));
        for (std::size_t at = 0; at < rtf.size(); at += 1024) {
            const std::string piece = rtf.substr(at, 1024);
            ULONG written = 0;
            ASSERT_EQ(S_OK, wrapped->Write(piece.data(), static_cast<ULONG>(piece.size()), &written));
        }
        EXPECT_EQ(S_OK, wrapped->Commit(0));
        EXPECT_EQ(S_OK, raw->Commit(0));
        while (wrapped->Release() != 0) {
        }
    }
    std::string ReadAll(IStream* stream, HRESULT* end = nullptr) {
        std::string all, piece(20000, '\0');
        for (;;) {
            ULONG read = 0;
            const HRESULT hr = stream->Read(piece.data(), 20000, &read);
            if (end) *end = hr;
            if (FAILED(hr) || read == 0) return all;
            all += piece.substr(0, read);
        }
    }
    std::string ReadRtf() {
        auto raw = Raw(PR_RTF_COMPRESSED, 0);
        TestRef<IStream> wrapped;
        EXPECT_EQ(S_OK, WrapCompressedRTFStream(raw.Get(), 0, wrapped.Out()));
        return ReadAll(wrapped.Get());
    }
    bool Sync(ULONG flags) {
        WINBOOL updated = FALSE;
        EXPECT_EQ(S_OK, ::RTFSync(message.Get(), flags, &updated));
        return updated;
    }
    std::string Body() { return ReadAll(Raw(PR_BODY_A, 0).Get()); }

    TestProfile profile{"Rtf", 1};
    TestRef<IMAPISession> session;
    TestRef<IMsgStore> store;
    TestRef<IMessage> message;
};

TEST_F(RtfSync, TextWrittenIsTextReadInBothForms) {
    std::string rtf = "{\\rtf1 ";
    for (int i = 0; i < 5000; ++i)
        rtf += "line " + std::to_string(i) + "\\par ";
    rtf += "}";
    for (ULONG form : {ULONG(0), STORE_UNCOMPRESSED_RTF}) {
        WriteRtf(rtf, form);
        EXPECT_EQ(rtf, ReadRtf());
        const std::string raw = ReadAll(Raw(PR_RTF_COMPRESSED, 0).Get());
        EXPECT_EQ(form ? "MELA" : "LZFu", raw.substr(8, 4));
        EXPECT_EQ(form != 0, raw.size() > rtf.size());
    }
}

TEST_F(RtfSync, BodyFollowsTheRtf) {
    WriteRtf("{\\rtf1\\ansi one\\par two \\u8364?}", 0);
    EXPECT_TRUE(Sync(RTF_SYNC_RTF_CHANGED));
    EXPECT_EQ(Utf8FromWide(L"one\r\ntwo \u20ac"), Body());
    EXPECT_FALSE(Sync(RTF_SYNC_RTF_CHANGED));
    LPSPropValue inSync = nullptr;
    EXPECT_EQ(S_OK, HrGetOneProp(message.Get(), PR_RTF_IN_SYNC, &inSync));
    EXPECT_TRUE(inSync && inSync->Value.b);
    MAPIFreeBuffer(inSync);
}

TEST_F(RtfSync, RtfFollowsTheBody) {
    SPropValue body{};
    body.ulPropTag = PR_BODY_A;
    body.Value.lpszA = const_cast<char*>("three {braces}\r\nfour");
    EXPECT_EQ(S_OK, HrSetOneProp(message.Get(), &body));
    EXPECT_TRUE(Sync(RTF_SYNC_BODY_CHANGED));
    EXPECT_EQ("three {braces}\r\nfour", TextFromRtf(ReadRtf()));
    EXPECT_FALSE(Sync(RTF_SYNC_BODY_CHANGED));
}

TEST_F(RtfSync, MessageWithoutBodiesStaysAsItIs) {
    EXPECT_FALSE(Sync(RTF_SYNC_RTF_CHANGED | RTF_SYNC_BODY_CHANGED));
}

TEST_F(RtfSync, DamagedRtfIsGivenAsFarAsItGoesAndThenAnError) {
    const std::string rtf = "{\\rtf1 " + std::string(3000, 'x') + " end of it all}";
    std::string packed = CompressRtf(rtf);
    packed.resize(packed.size() - 10);
    auto raw = Raw(PR_RTF_COMPRESSED, MAPI_MODIFY | MAPI_CREATE);
    ULONG written = 0;
    EXPECT_EQ(S_OK, raw->Write(packed.data(), static_cast<ULONG>(packed.size()), &written));
    EXPECT_EQ(S_OK, raw->Commit(0));
    raw.Reset();
    TestRef<IStream> wrapped;
    const auto again = Raw(PR_RTF_COMPRESSED, 0);
    ASSERT_EQ(S_OK, WrapCompressedRTFStream(again.Get(), 0, wrapped.Out()));
    HRESULT end = S_OK;
    const std::string read = ReadAll(wrapped.Get(), &end);
    EXPECT_EQ(MAPI_E_CORRUPT_DATA, end);
    EXPECT_GT(read.size(), 2000u);
    EXPECT_EQ(rtf.substr(0, read.size()), read);
}

}  // namespace
