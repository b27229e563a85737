// Small verbs for tests of compound files: each demands success where it says nothing else.
#pragma once
#include <Platform/Clock.h>
#include <Platform/Directories.h>
#include <Platform/Files.h>
#include <Platform/Machine.h>
#include <Platform/MapiHeaders.h>
#include <Platform/Utf8.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

struct Releaser {
    void operator()(IUnknown* object) const { object->Release(); }
};
using StorageHold = std::unique_ptr<IStorage, Releaser>;
using StreamHold = std::unique_ptr<IStream, Releaser>;
using LockBytesHold = std::unique_ptr<ILockBytes, Releaser>;

constexpr DWORD Exclusive = STGM_READWRITE | STGM_SHARE_EXCLUSIVE;
constexpr DWORD ReadExclusive = STGM_READ | STGM_SHARE_EXCLUSIVE;

class CompoundFileTest : public ::testing::Test {
protected:
    static std::wstring Path(const std::string& name) {
        return WideFromUtf8(JoinPath(DataDirectory(), name));
    }

    static StorageHold CreateFileStorage(const std::wstring& path, DWORD mode = STGM_CREATE | Exclusive) {
        IStorage* storage = nullptr;
        EXPECT_EQ(S_OK, StgCreateDocfile(path.c_str(), mode, 0, &storage));
        return StorageHold(storage);
    }

    static StorageHold OpenFileStorage(const std::wstring& path, DWORD mode = ReadExclusive) {
        IStorage* storage = nullptr;
        EXPECT_EQ(S_OK, StgOpenStorage(path.c_str(), nullptr, mode, nullptr, 0, &storage));
        return StorageHold(storage);
    }

    static StorageHold AddStorage(IStorage& in, const wchar_t* name, DWORD mode = Exclusive) {
        IStorage* storage = nullptr;
        EXPECT_EQ(S_OK, in.CreateStorage(name, mode, 0, 0, &storage));
        return StorageHold(storage);
    }

    static StorageHold SubStorage(IStorage& in, const wchar_t* name, DWORD mode = ReadExclusive) {
        IStorage* storage = nullptr;
        EXPECT_EQ(S_OK, in.OpenStorage(name, nullptr, mode, nullptr, 0, &storage));
        return StorageHold(storage);
    }

    static void AddStream(IStorage& in, const wchar_t* name, const std::string& bytes) {
        IStream* stream = nullptr;
        ASSERT_EQ(S_OK, in.CreateStream(name, STGM_CREATE | Exclusive, 0, 0, &stream));
        ULONG written = 0;
        EXPECT_EQ(S_OK, stream->Write(bytes.data(), static_cast<ULONG>(bytes.size()), &written));
        EXPECT_EQ(bytes.size(), written);
        stream->Release();
    }

    static StreamHold OpenStream(IStorage& in, const wchar_t* name, DWORD mode = ReadExclusive) {
        IStream* stream = nullptr;
        EXPECT_EQ(S_OK, in.OpenStream(name, nullptr, mode, 0, &stream));
        return StreamHold(stream);
    }

    static std::string Rest(IStream& stream) {
        std::string bytes;
        char block[700];
        ULONG got = 0;
        while (stream.Read(block, sizeof block, &got) == S_OK && got > 0) {
            bytes.append(block, got);
        }
        return bytes;
    }

    static std::string StreamBytes(IStorage& in, const wchar_t* name) {
        const StreamHold stream = OpenStream(in, name);
        return stream ? Rest(*stream) : std::string("(no stream)");
    }

    // "name:size" of a stream, "name/" of a storage, in byte order.
    static std::vector<std::string> Elements(IStorage& in) {
        std::vector<std::string> names;
        IEnumSTATSTG* elements = nullptr;
        EXPECT_EQ(S_OK, in.EnumElements(0, nullptr, 0, &elements));
        STATSTG stat{};
        ULONG got = 0;
        while (elements->Next(1, &stat, &got) == S_OK) {
            const std::string name = Utf8FromWide(stat.pwcsName);
            names.push_back(stat.type == STGTY_STORAGE ? name + "/"
                                                       : name + ":" + std::to_string(stat.cbSize.QuadPart));
            CoTaskMemFree(stat.pwcsName);
        }
        elements->Release();
        std::sort(names.begin(), names.end());
        return names;
    }

    // Bytes that tell where they were misplaced.
    static std::string Pattern(size_t cb) {
        std::string bytes;
        while (bytes.size() < cb) {
            bytes += std::to_string(bytes.size()) + ",";
        }
        return bytes.substr(0, cb);
    }
};
