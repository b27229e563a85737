// Recipients and attachments put on a message through the published interfaces.
#pragma once
#include <support/StoreFixture.h>

#include <array>
#include <string>

// One recipient row, whose address is `name` at example.org; `rowId` says which row is meant.
inline HRESULT ModifyRecipient(IMessage* message, ULONG flags, const std::string& name, LONG type,
                               int rowId = -1) {
    const std::string address = name + "@example.org";
    std::array<SPropValue, 4> values{};
    values[0].ulPropTag = PR_DISPLAY_NAME_A;
    values[0].Value.lpszA = const_cast<char*>(name.c_str());
    values[1].ulPropTag = PR_RECIPIENT_TYPE;
    values[1].Value.l = type;
    values[2].ulPropTag = PR_EMAIL_ADDRESS_A;
    values[2].Value.lpszA = const_cast<char*>(address.c_str());
    values[3].ulPropTag = PR_ROWID;
    values[3].Value.l = rowId;
    ADRLIST list{};
    list.cEntries = 1;
    list.aEntries[0].cValues = rowId < 0 ? 3 : 4;
    list.aEntries[0].rgPropVals = values.data();
    return message->ModifyRecipients(flags, &list);
}

// A file with its name and data, not saved.
inline TestRef<IAttach> AddAttachment(IMessage* message, const std::string& name, const std::string& data) {
    TestRef<IAttach> attach;
    ULONG number = 0;
    EXPECT_EQ(message->CreateAttach(nullptr, 0, &number, attach.Out()), S_OK);
    EXPECT_EQ(SetText(attach.Get(), PR_ATTACH_FILENAME_A, name), S_OK);
    EXPECT_EQ(SetLong(attach.Get(), PR_ATTACH_METHOD, ATTACH_BY_VALUE), S_OK);
    EXPECT_EQ(SetStream(attach.Get(), PR_ATTACH_DATA_BIN, data), S_OK);
    return attach;
}

// The message within an attachment; null if there is none and none is created.
inline TestRef<IMessage> EmbeddedIn(IAttach* attach, ULONG flags) {
    TestRef<IMessage> embedded;
    attach->OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IMessage, 0, flags,
                         reinterpret_cast<IUnknown**>(embedded.Out()));
    return embedded;
}
