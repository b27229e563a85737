#include <Programs/vellum/Items/MsgFile.h>

#include <Platform/Files.h>
#include <Platform/Machine.h>
#include <Platform/Utf8.h>
#include <Programs/vellum/Session/Explain.h>

#include <cstdio>
#include <cstring>
#include <memory>

namespace {

constexpr CLSID clsidMailMessage = {0x00020D0B, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
constexpr unsigned char compoundMagic[8] = {0xD0, 0xCF, 0x11, 0xE0, 0xA1, 0xB1, 0x1A, 0xE1};

// A message over a storage. The storage must outlive the message.
IMessagePtr OpenMessageOn(IStorage* storage, const std::string& path) {
    IMessagePtr message;
    CheckCall(OpenIMsgOnIStg(nullptr, MAPIAllocateBuffer, MAPIAllocateMore, MAPIFreeBuffer,
                             MAPIGetDefaultMalloc(), nullptr, storage, nullptr, 0, 0, message.Out()),
              "The file \"" + path + "\" does not hold an item", ExitCode::NotOpen);
    return message;
}

}  // namespace

bool IsMsgFile(const std::string& path) {
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(OpenFile(path, "rb"), std::fclose);
    unsigned char head[sizeof(compoundMagic)]{};
    return file && std::fread(head, 1, sizeof(head), file.get()) == sizeof(head) &&
           std::memcmp(head, compoundMagic, sizeof(head)) == 0;
}

std::string ImportMsgFile(const std::string& path, const CFolderRef& folder) {
    CComPtr<IStorage> storage;
    CheckCall(StgOpenStorage(WideFromUtf8(path).c_str(), nullptr, STGM_READ | STGM_SHARE_EXCLUSIVE, nullptr,
                             0, storage.Out()),
              "The file \"" + path + "\" cannot be opened", ExitCode::NotOpen);
    const IMessagePtr source = OpenMessageOn(storage.Get(), path);
    try {
        IMessagePtr target = folder.folder.CreateMessage(nullptr, 0);
        CheckCall(source->CopyTo(0, nullptr, nullptr, 0, nullptr, &IID_IMessage, target.Get(), 0, nullptr),
                  "The file \"" + path + "\" cannot be read to its end", ExitCode::NotOpen);
        target.SaveChanges();
    } catch (const CMAPIException& e) {
        throw CCommandError(ExitCode::NotOpen, "The item of the file \"" + path +
                                                   "\" cannot be written to \"" + folder.path +
                                                   "\": " + Explain(e));
    }
    return source.GetStrPropOrEmpty(PR_SUBJECT_A);
}

void ExportMsgFile(const IMessagePtr& message, const std::string& path) {
    const std::string failure = "The file \"" + path + "\" cannot be written";
    CComPtr<IStorage> storage;
    CheckCall(StgCreateDocfile(WideFromUtf8(path).c_str(),
                               STGM_CREATE | STGM_READWRITE | STGM_SHARE_EXCLUSIVE | STGM_TRANSACTED, 0,
                               storage.Out()),
              failure, ExitCode::NotOpen);
    try {
        {
            IMessagePtr target = OpenMessageOn(storage.Get(), path);
            CheckCall(
                message->CopyTo(0, nullptr, nullptr, 0, nullptr, &IID_IMessage, target.Get(), 0, nullptr),
                failure, ExitCode::NotOpen);
            CheckCall(target->SaveChanges(KEEP_OPEN_READWRITE), failure, ExitCode::NotOpen);
        }
        CheckCall(WriteClassStg(storage.Get(), clsidMailMessage), failure, ExitCode::NotOpen);
        CheckCall(storage->Commit(STGC_DEFAULT), failure, ExitCode::NotOpen);
    } catch (const CCommandError&) {
        storage.Free();
        RemoveFile(path);
        throw;
    }
}
