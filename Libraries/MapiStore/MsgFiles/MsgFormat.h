// The layout of a message on a compound file: names and numbers that reader and writer share, and the
// few things that both ask of a storage.
#pragma once
#include <Platform/MapiHeaders.h>

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace msg {

// Elements of a message's storage.
inline constexpr wchar_t kProperties[] = L"__properties_version1.0";
inline constexpr wchar_t kNames[] = L"__nameid_version1.0";
inline constexpr wchar_t kRecipient[] = L"__recip_version1.0_#";    // and eight hexadecimal digits
inline constexpr wchar_t kAttachment[] = L"__attach_version1.0_#";  // the same
inline constexpr wchar_t kValue[] = L"__substg1.0_";                // and the tag, the same way

// Bytes of a property stream before its first entry.
inline constexpr std::size_t kTopHeader = 32;
inline constexpr std::size_t kEmbeddedHeader = 24;
inline constexpr std::size_t kPartHeader = 8;
inline constexpr std::size_t kEntrySize = 16;

// Streams of the storage of names.
inline constexpr ULONG kGuidStream = 0x00020102;
inline constexpr ULONG kEntryStream = 0x00030102;
inline constexpr ULONG kStringStream = 0x00040102;
inline constexpr ULONG kFirstHashStream = 0x1000;
inline constexpr ULONG kHashStreams = 31;

// The tag under which an attachment holds its message or its storage.
inline constexpr ULONG kObjectTag = 0x3701000D;
// {00020D0B-0000-0000-C000-000000000046}
inline constexpr GUID kMessageClass = {0x00020D0B, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};

std::wstring Name(const wchar_t* prefix, ULONG number);                        // with eight digits behind
bool ParseName(std::wstring_view name, const wchar_t* prefix, ULONG& number);  // exactly that form

struct Element {
    std::wstring name;
    bool isStorage;
};
// The elements of a storage; as many as could be listed if it is damaged.
std::vector<Element> ListElements(IStorage& storage);

// False if there is no such stream or it cannot be read. `most` bounds the bytes; more are left out.
bool ReadStream(IStorage& storage, const std::wstring& name, std::size_t most, std::string& bytes);
// Makes the stream anew. Throws CStoreError.
void WriteStream(IStorage& storage, const std::wstring& name, std::string_view bytes);

template <class Number>
Number NumberAt(std::string_view bytes, std::size_t at) {
    Number number = 0;
    for (std::size_t i = sizeof number; i-- > 0;)
        number = static_cast<Number>(static_cast<std::uint64_t>(number) << 8 |
                                     static_cast<unsigned char>(bytes[at + i]));
    return number;
}
template <class Number>
void Append(Number number, std::string& bytes) {
    for (std::size_t i = 0; i < sizeof number; ++i)
        bytes.push_back(static_cast<char>(static_cast<std::uint64_t>(number) >> (8 * i)));
}

// The code that a failed call of structured storage means to a caller of MAPI.
SCODE MapiCodeOf(SCODE code);

}  // namespace msg
