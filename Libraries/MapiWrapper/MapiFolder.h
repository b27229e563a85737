// A folder of a message store.
#pragma once
#include <MapiWrapper/GenMapiCont.h>

#include <string>

class IMessagePtr;

class IMAPIFolderPtr : public CGenMapiPropPtr, public CGenMapiContPtr {
public:
    using Interface = IMAPIFolder;
    static const IID& InterfaceId() { return IID_IMAPIFolder; }

    IMAPIFolderPtr() = default;
    explicit IMAPIFolderPtr(IMAPIFolder* object) : m_object(object) {}  // adds a reference

    IMAPIProp* RawProp() const override { return m_object.Get(); }
    IMAPIContainer* RawContainer() const override { return m_object.Get(); }
    TextForm ContainerText() const override { return Text(); }
    // Takes the caller's reference.
    void Attach(IMAPIFolder* object) {
        m_object.Attach(object);
        SetText(TextForm::Unknown);
    }
    IMAPIFolder* Detach() { return m_object.Detach(); }
    IMAPIFolder* Get() const { return m_object.Get(); }
    IMAPIFolder* operator->() const { return NotNull(m_object.Get(), "IMAPIFolderPtr"); }

    // Not saved yet. Throws "IMAPIFolderPtr::CreateMessage".
    IMessagePtr CreateMessage(LPCIID iid, ULONG flags) const;
    // Flags such as OPEN_IF_EXISTS. Throws "IMAPIFolderPtr::CreateFolder"; MAPI_E_BAD_CHARWIDTH where the
    // store has only 8-bit text and the name letters that it lacks.
    IMAPIFolderPtr CreateFolder(ULONG folderType, const std::string& name, const std::string& comment,
                                ULONG flags) const;

private:
    CComPtr<IMAPIFolder> m_object;
};

// Creates or opens each level of `path` below `folder` and returns the last one. An empty path gives
// `folder` itself. Throws as CreateFolder.
IMAPIPropPtr CreateFolderPath(IMAPIFolderPtr folder, const std::string& path, char separator);

// The child folder of that display name (the store's comparison of PR_DISPLAY_NAME_A), the first of
// several; empty if there is none. Throws where the hierarchy cannot be read or the folder not opened.
IMAPIFolderPtr FindSubfolder(const CGenMapiContPtr& parent, const std::string& name);
