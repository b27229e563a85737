// A compound file in memory: storages that hold storages and streams. For this room only.
#pragma once
#include <windows.h>
#include <map>
#include <memory>
#include <string>

namespace compound {

// Nothing that a message needs comes near; it bounds every recursion over the tree.
inline constexpr unsigned MaxDepth = 256;
inline constexpr size_t MaxNameLength = 31;           // UTF-16 units
inline constexpr std::uint64_t MaxSize = 0x7FFFFFFF;  // of a file and of a stream: version 3 ends there

std::u16string Utf16Of(const std::wstring& name);
std::wstring WideOf(const std::u16string& name);

// The published order of siblings: the shorter name first, then by units in upper case.
struct NameLess {
    bool operator()(const std::u16string& left, const std::u16string& right) const;
};

struct Element;
using ElementRef = std::shared_ptr<Element>;

struct Element {
    bool isStorage = true;
    std::u16string name;
    CLSID clsid{};
    DWORD stateBits = 0;
    FILETIME created{};
    FILETIME modified{};

    // Of a storage.
    std::map<std::u16string, ElementRef, NameLess> children;

    // Of a stream. Copies of a tree share the bytes until one of them writes; see WritableBytes.
    std::shared_ptr<std::string> bytes = std::make_shared<std::string>();
    bool damaged = false;  // the file did not hold all bytes of the stream

    // Whoever has it open holds the token; a second opener is refused.
    std::weak_ptr<void> openToken;
    bool gone = false;  // destroyed or reverted while open

    std::string& WritableBytes() {
        if (bytes.use_count() > 1) bytes = std::make_shared<std::string>(*bytes);
        return *bytes;
    }
};

ElementRef NewElement(bool isStorage, const std::u16string& name);
// A copy of all but who has it open.
ElementRef CopyTree(const Element& from);
// Gives `to` the contents of `from` as copies; what stood below `to` is marked as gone.
void ReplaceContents(Element& to, const Element& from);
void MarkGone(Element& element);

// Reads a file. S_OK, or
//   STG_E_FILEALREADYEXISTS  these bytes are something else than a compound file
//   STG_E_OLDFORMAT, STG_E_INVALIDHEADER, STG_E_DOCFILECORRUPT
// A stream whose sectors are missing, shared with another or in a circle is there, marked as damaged.
// Needs no more memory than a small multiple of the bytes, and linear time.
HRESULT ParseCompoundFile(const std::string& bytes, ElementRef& root);

// The bytes of a version 3 file. S_OK, or STG_E_MEDIUMFULL where they exceed MaxSize.
HRESULT PrintCompoundFile(const Element& root, std::string& bytes);

}  // namespace compound
