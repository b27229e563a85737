// The primitives of streams, against streams that lie.
#include "FakeMapi.h"

#include <gtest/gtest.h>

namespace {

using namespace fakes;

class Streams : public testing::Test {
protected:
    IStream* Open() {
        m_stream.Attach(new CFakeStream(m_data));
        return m_stream.Get();
    }
    CFakeBytes m_data;
    CComPtr<IStream> m_stream;
};

TEST_F(Streams, WordsTextsAndBlobsGoRoundInAnyPortion) {
    for (const ULONG portion : {1u, 3u, 1000u}) {
        m_data = CFakeBytes();
        m_data.cbPortion = portion;
        IStream* stream = Open();
        EXPECT_EQ(WriteWord(stream, 0x01020304), S_OK);
        EXPECT_EQ(WriteBlob(stream, View("blob")), S_OK);
        EXPECT_EQ(WriteBlob(stream, SBinary{0, nullptr}), S_OK);
        EXPECT_EQ(WriteBlob(stream, View(std::string("te\0xt", 5))), S_OK);
        EXPECT_EQ(m_data.bytes.substr(0, 4), "\x04\x03\x02\x01");
        EXPECT_EQ(ReadWord(stream), 0x01020304u);
        SBinary blob;
        EXPECT_EQ(ReadBlob(stream, blob, nullptr), S_OK);
        EXPECT_TRUE(EqualBinary(blob, View("blob")));
        MAPIFreeBuffer(blob.lpb);
        CMapiPropValue parent(PR_ENTRYID);
        EXPECT_EQ(ReadBlob(stream, blob, parent.Get()), S_OK);
        EXPECT_EQ(blob.cb, 0u);
        std::string text;
        EXPECT_EQ(ReadStreamText(stream, text), S_OK);
        EXPECT_EQ(text, "te");
        EXPECT_EQ(ReadWord(stream), 0u);
    }
}

TEST_F(Streams, ALengthThatLiesEndsTheReadingWithoutItsMemory) {
    m_data.bytes = "\xFF\xFF\xFF\x3Fshort";
    SBinary blob{9, nullptr};
    EXPECT_EQ(ReadBlob(Open(), blob, nullptr), static_cast<HRESULT>(MAPI_E_CORRUPT_DATA));
    EXPECT_EQ(blob.cb, 0u);
    std::string text = "old";
    EXPECT_LT(ReadStreamText(Open(), text), 0);
    EXPECT_EQ(text, "");
    m_data.bytes = "\xFF\xFF\xFF\xFF";
    EXPECT_LT(ReadBlob(Open(), blob, nullptr), 0);
    m_data.bytes = "\x01\x02";
    ULONG word = 5;
    EXPECT_LT(ReadWord(Open(), word), 0);
    EXPECT_EQ(word, 0u);
}

TEST_F(Streams, AnEndlessStreamIsCutAtTheLimit) {
    m_data.endless = true;
    std::string out;
    EXPECT_EQ(ReadToEnd(Open(), out, 1000, 10000), static_cast<HRESULT>(MAPI_E_TOO_BIG));
    EXPECT_LE(out.size(), 10000u);
}

TEST_F(Streams, AWriteThatMakesNoProgressEnds) {
    m_data.cbPortion = 0;
    EXPECT_LT(WriteAll(Open(), "abc", 3), 0);
    m_data.cbPortion = 2;
    m_data.writeResult = S_FALSE;
    EXPECT_LT(WriteAll(Open(), "abc", 3), 0);
}

}  // namespace
