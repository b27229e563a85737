// Messages in the associated contents of a folder.
#include <MapiWrapper/MapiFolder.h>
#include <MapiWrapper/Message.h>

namespace {

// Subject and class both equal. Points into itself: stays where it was made.
class CSubjectAndClass {
public:
    CSubjectAndClass(const std::string& subject, const std::string& messageClass) {
        Set(0, PR_SUBJECT_A, subject);
        Set(1, PR_MESSAGE_CLASS_A, messageClass);
        m_all.rt = RES_AND;
        m_all.res.resAnd.cRes = 2;
        m_all.res.resAnd.lpRes = m_parts;
    }
    CSubjectAndClass(const CSubjectAndClass&) = delete;
    CSubjectAndClass& operator=(const CSubjectAndClass&) = delete;
    SRestriction* Get() { return &m_all; }

private:
    void Set(int i, ULONG tag, const std::string& text) {
        m_values[i].ulPropTag = tag;
        m_values[i].Value.lpszA = const_cast<char*>(text.c_str());
        m_parts[i].rt = RES_PROPERTY;
        m_parts[i].res.resProperty.relop = RELOP_EQ;
        m_parts[i].res.resProperty.ulPropTag = tag;
        m_parts[i].res.resProperty.lpProp = &m_values[i];
    }
    SPropValue m_values[2]{};
    SRestriction m_parts[2]{};
    SRestriction m_all{};
};

}  // namespace

IMessagePtr FindOrCreateHidden(const IMAPIFolderPtr& folder, const std::string& subject,
                               const std::string& messageClass, bool create) {
    const IMAPITablePtr table = folder._rawAssociatedTable();
    CSubjectAndClass restriction(subject, messageClass);
    const HRESULT found = table.FindRow(restriction.Get(), BOOKMARK_BEGINNING);
    // A search that failed says nothing about what is there, and a second message would hide the first.
    if (found != MAPI_E_NOT_FOUND) THROW_ON_FAILURE_FOR(found, table.Get());
    if (found >= 0) {
        CMapiRowSet rows;
        THROW_ON_FAILURE_FOR(table.SetColumnsAndQuery(rows, 1, 0, {PR_ENTRYID}), table.Get());
        return folder.OpenEntryv(rows.Cell(0, 0)).As<IMessagePtr>();
    }
    if (!create) return {};
    IMessagePtr message = folder.CreateMessage(&IID_IMessage, MAPI_ASSOCIATED);
    message.SetStrProp(PR_SUBJECT_A, subject);
    message.SetStrProp(PR_MESSAGE_CLASS_A, messageClass);
    return message;
}
