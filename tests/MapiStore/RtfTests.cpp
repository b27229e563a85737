#include <MapiStore/Values/Lzfu.h>
#include <MapiStore/Values/RtfText.h>
#include <MapiStore/Values/StoreError.h>
#include <MapiStore/Values/StreamBytes.h>
#include <MapiStore/Values/UnknownImpl.h>
#include <Platform/MapiHeaders.h>
#include <gtest/gtest.h>

#include <random>
#include <vector>

namespace {

std::string FromHex(std::string_view hex) {
    std::string bytes;
    for (std::size_t i = 0; i + 1 < hex.size(); i += 2)
        bytes.push_back(static_cast<char>(std::stoi(std::string(hex.substr(i, 2)), nullptr, 16)));
    return bytes;
}

std::string Decompressed(const std::string& packed) {
    const DecompressedRtf result = DecompressRtf(packed);
    EXPECT_FALSE(result.damaged);
    return result.text;
}

struct Published {
    const char* text;
    const char* packed;
};
// The two examples that the format's description prints.
const Published kPublished[] = {
    {"{\\rtf1\\ansi\\ansicpg1252\\pard hello world}\r\n",
     "2d0000002b0000004c5a4675f1c5c7a703000a007263706731323542320af32068656c090020627705b06c647d0a800fa0"},
    {"{\\rtf1 WXYZWXYZWXYZWXYZWXYZ}", "1a0000001c0000004c5a4675e2d44b51410004205758595a0d6e7d010eb0"}};

TEST(RtfCompression, PublishedExamplesDecompressAndCompressByteForByte) {
    for (const Published& example : kPublished) {
        EXPECT_EQ(example.text, Decompressed(FromHex(example.packed)));
        EXPECT_EQ(FromHex(example.packed), CompressRtf(example.text));
    }
}

TEST(RtfCompression, EveryTextComesBack) {
    std::mt19937 random(7);
    std::vector<std::string> texts{"", "a", std::string(5000, 'a'), std::string(100000, '\0')};
    for (int alphabet : {1, 2, 3, 30, 256}) {
        for (int size : {2, 17, 18, 19, 4095, 4096, 4097, 9000, 50000}) {
            std::string text;
            for (int i = 0; i < size; ++i)
                text.push_back(static_cast<char>(random() % static_cast<unsigned>(alphabet)));
            texts.push_back(text);
        }
    }
    std::string repeated;
    for (int i = 0; i < 3000; ++i)
        repeated += "\\par \\pard\\plain line " + std::to_string(i);
    texts.push_back(repeated);
    for (const std::string& text : texts) {
        const std::string packed = CompressRtf(text);
        EXPECT_EQ(text, Decompressed(packed)) << text.size();
        EXPECT_EQ(text, Decompressed(WrapUncompressedRtf(text))) << text.size();
    }
    EXPECT_LT(CompressRtf(repeated).size(), repeated.size() / 2);
}

TEST(RtfCompression, CutAndSpoiledInputEndsWithWhatCouldBeRead) {
    std::string text;
    for (int i = 0; i < 400; ++i)
        text += "{\\b word " + std::to_string(i * 37) + "}";
    const std::string packed = CompressRtf(text);
    for (std::size_t size = 16; size < packed.size(); ++size) {
        DecompressedRtf result;
        try {
            result = DecompressRtf(packed.substr(0, size));
        } catch (const CStoreError& error) {
            EXPECT_EQ(MAPI_E_CORRUPT_DATA, error.Code());
            continue;
        }
        EXPECT_TRUE(result.damaged) << size;
        EXPECT_EQ(text.substr(0, result.text.size()), result.text);
    }
    std::mt19937 random(11);
    for (int round = 0; round < 3000; ++round) {
        std::string spoiled = packed;
        spoiled[16 + random() % (spoiled.size() - 16)] ^= static_cast<char>(1 + random() % 255);
        const DecompressedRtf result = DecompressRtf(spoiled);
        EXPECT_TRUE(result.damaged);
        EXPECT_LE(result.text.size(), text.size());
    }
}

TEST(RtfCompression, HeaderCannotAskForMoreThanTheInputYields) {
    std::string packed = CompressRtf("{\\rtf1 x}");
    packed[4] = packed[5] = packed[6] = static_cast<char>(0xFF);
    packed[7] = 0x7F;
    EXPECT_THROW(DecompressRtf(packed), CStoreError);
    EXPECT_THROW(DecompressRtf("short"), CStoreError);
    EXPECT_THROW(DecompressRtf(std::string(40, 'x')), CStoreError);
    EXPECT_EQ("", Decompressed(""));
}

struct Rendered {
    const char* rtf;
    const char* text;
    const char* why;
};
const Rendered kRendered[] = {
    {"{\\rtf1\\ansi hello\\par world}", "hello\r\nworld", "paragraphs"},
    {"{\\rtf1 a\\tab b\\line c}", "a\tb\r\nc", "tabs and lines"},
    {"{\\rtf1\\ansi\\ansicpg1252 \\'e4\\'80}", "\xC3\xA4\xE2\x82\xAC", "bytes of the code page"},
    {"{\\rtf1\\ansi\\ansicpg1251 \\'e4}", "\xD0\xB4", "another code page"},
    {"{\\rtf1{\\fonttbl{\\f0\\fcharset0 Arial;}{\\f1\\fcharset128 Gothic;}}\\f1\\'82\\'a0\\f0 x}",
     "\xE3\x81\x82x", "two bytes in a font's code page"},
    {"{\\rtf1\\uc1 \\u228?x\\uc0\\u8364 y}", "\xC3\xA4x\xE2\x82\xACy", "Unicode and what stands in for it"},
    {"{\\rtf1 \\u-10179?\\u-8704?}", "\xF0\x9F\x98\x80", "surrogates, as signed numbers"},
    {"{\\rtf1 a{\\*\\unknown hidden{\\b also}}b}", "ab", "unknown destinations"},
    {"{\\rtf1{\\info{\\title t}}{\\pict\\wmetafile8 0a0b}x{\\stylesheet{\\s0 Normal;}}}", "x", "known ones"},
    {"{\\rtf1 a\\bin3 }}{b}", "ab", "raw bytes are not read"},
    {"{\\rtf1\\fromhtml1 {\\*\\htmltag64 <p>}text{\\*\\htmltag72 </p>}\\htmlrtf\\par\\htmlrtf0 }", "text\r\n",
     "text made from HTML"},
    {"{\\rtf1 {\\field{\\*\\fldinst HYPERLINK \"x\"}{\\fldrslt link}}}", "link", "fields show their result"},
    {"{\\rtf1 \\{\\}\\\\\\~\\_\\-}", "{}\\\xC2\xA0-", "escapes"},
    {"{\\rtf1 open{\\b never closed",
     "open"
     "never closed",
     "missing ends"},
    {"{\\rtf1 x}behind", "x", "bytes behind the document"},
    {"{\\rtf1 \\'zz\\u\\'4", "zz", "broken escapes"},
    {"\\", "", "a lonely backslash"}};

TEST(RtfText, ShowsWhatAReaderSees) {
    for (const Rendered& c : kRendered)
        EXPECT_EQ(c.text, TextFromRtf(c.rtf)) << c.why;
}

TEST(RtfText, PlainTextComesBackThroughRtf) {
    for (const std::string text :
         {"plain", "two\r\nlines", "{\\}\ttab", "\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80 4", ""})
        EXPECT_EQ(text, TextFromRtf(RtfFromText(text)));
    EXPECT_EQ("a\r\nb", TextFromRtf(RtfFromText("a\nb")));
}

TEST(RtfText, DeepGroupsAreRead) {
    const std::string deep = "{\\rtf1" + std::string(100000, '{') + "x" + std::string(100000, '}') + "y}";
    EXPECT_EQ("xy", TextFromRtf(deep));
}

}  // namespace
