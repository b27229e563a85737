#include <MapiWrapper/MapiFolder.h>
#include <MapiWrapper/Message.h>

IMessagePtr IMAPIFolderPtr::CreateMessage(LPCIID iid, ULONG flags) const {
    IMAPIFolder* raw = NotNull(m_object.Get(), "IMAPIFolderPtr::CreateMessage");
    IMessagePtr message;
    const HRESULT hr = raw->CreateMessage(iid, flags, message.Out());
    if (hr < 0) throw CMAPIException(hr, "IMAPIFolderPtr::CreateMessage", raw);
    message.SetText(Text());
    return message;
}

IMAPIFolderPtr IMAPIFolderPtr::CreateFolder(ULONG folderType, const std::string& name,
                                            const std::string& comment, ULONG flags) const {
    IMAPIFolder* raw = NotNull(m_object.Get(), "IMAPIFolderPtr::CreateFolder");
    IMAPIFolderPtr folder;
    // Two names of which nothing is left but question marks would become one folder.
    if (!CanKeepText(name, Text()))
        throw CMAPIException(MAPI_E_BAD_CHARWIDTH, "IMAPIFolderPtr::CreateFolder", raw);
    CStoreText text(Text());
    const HRESULT hr = raw->CreateFolder(folderType, text.Argument(name), text.Argument(comment), nullptr,
                                         flags | text.Flag(), folder.m_object.Out());
    if (hr < 0) throw CMAPIException(hr, "IMAPIFolderPtr::CreateFolder", raw);
    folder.SetText(Text());
    return folder;
}

IMAPIPropPtr CreateFolderPath(IMAPIFolderPtr folder, const std::string& path, char separator) {
    size_t start = 0;
    while (start < path.size()) {
        const size_t end = path.find(separator, start);
        const std::string name = path.substr(start, end == std::string::npos ? end : end - start);
        folder = folder.CreateFolder(FOLDER_GENERIC, name, "", OPEN_IF_EXISTS);
        start = end == std::string::npos ? path.size() : end + 1;
    }
    return folder;
}

IMAPIFolderPtr FindSubfolder(const CGenMapiContPtr& parent, const std::string& name) {
    const IMAPITablePtr table = parent._rawHierrarchyTable();
    SPropValue value{};
    value.ulPropTag = PR_DISPLAY_NAME_A;
    value.Value.lpszA = const_cast<char*>(name.c_str());
    SRestriction restriction{};
    restriction.rt = RES_PROPERTY;
    restriction.res.resProperty.relop = RELOP_EQ;
    restriction.res.resProperty.ulPropTag = PR_DISPLAY_NAME_A;
    restriction.res.resProperty.lpProp = &value;
    table.Restrict(&restriction, TBL_BATCH);
    const CMapiRowSet rows = table.QueryRows({PR_ENTRYID});
    if (rows.Count() == 0) return {};
    return parent.OpenEntryv(rows.Cell(0, 0)).As<IMAPIFolderPtr>();
}
