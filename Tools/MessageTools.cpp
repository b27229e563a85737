#include <Platform/UserInterface.h>
#include <Tools/MessageTools.h>

namespace {

char Lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
}

bool EqualNoCase(const std::string& a, const std::string& b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i) {
        if (Lower(a[i]) != Lower(b[i])) return false;
    }
    return true;
}

std::string FileNameOf(const std::string& path) {
    const size_t at = path.rfind('\\');
    return at == std::string::npos ? path : path.substr(at + 1);
}

CMapiRowSet AttachmentRows(const IMessagePtr& message) {
    IMAPITablePtr table;
    THROW_ON_FAILURE(message->GetAttachmentTable(0, table.Out()));
    table.SetText(message.KnownText());
    return table.QueryRows({PR_ATTACH_NUM, PR_ATTACH_FILENAME_A});
}

// Puts the attachment into `attach` only when the call went well, so that a failure leaves it alone.
void TakeAttachment(HRESULT hr, IAttachPtr& opened, IAttachPtr& attach) {
    THROW_ON_FAILURE(hr);
    attach = std::move(opened);
}

IMAPIFolderPtr WastebasketOf(const IMAPIFolderPtr& folder, const CMapiSession& session) {
    try {
        return session.OpenStore(folder.GetBinProp(PR_STORE_ENTRYID)).GetWastebasket();
    } catch (const CMAPIException&) {
        return {};
    }
}

void MoveMessages(const std::vector<CMapiBinary>& messages, const IMAPIFolderPtr& folder,
                  const IMAPIFolderPtr& target) {
    std::vector<SBinary> ids;
    for (const CMapiBinary& message : messages)
        ids.push_back(message.Bin());
    ENTRYLIST list{static_cast<ULONG>(ids.size()), ids.data()};
    THROW_ON_FAILURE(folder->CopyMessages(&list, nullptr, target.Get(), 0, nullptr, MESSAGE_MOVE));
}

}  // namespace

void FindAttachment(const IMessagePtr& message, const std::string& name, IAttachPtr& attach, bool create,
                    bool* created) {
    try {
        IMessage* raw = NotNull(message.Get(), "FindAttachment");
        const CMapiRowSet rows = AttachmentRows(message);
        IAttachPtr opened;
        for (ULONG row = 0; row < rows.Count(); ++row) {
            if (!EqualNoCase(FileNameOf(rows.Cell(row, 1).Text()), name)) continue;
            const ULONG number = static_cast<ULONG>(rows.Cell(row, 0).Long());
            TakeAttachment(raw->OpenAttach(number, nullptr, MAPI_BEST_ACCESS, opened.Out()), opened, attach);
            return;
        }
        if (!create) {
            attach.Free();
            return;
        }
        ULONG number = 0;
        TakeAttachment(raw->CreateAttach(nullptr, 0, &number, opened.Out()), opened, attach);
        if (created) *created = true;
    } catch (const CMAPIException&) {
    }
}

void DeleteMessages(const std::vector<CMapiBinary>& messages, const IMAPIFolderPtr& folder,
                    const CMapiSession& session) {
    try {
        const IMAPIFolderPtr wastebasket = WastebasketOf(folder, session);
        if (wastebasket) MoveMessages(messages, folder, wastebasket);
    } catch (const CMAPIException& e) {
        ReportException(CMAPIException(e), "DeleteMessages");
    } catch (...) {
        ShowMessageBox("Error delete messages", "", 0);
    }
}
