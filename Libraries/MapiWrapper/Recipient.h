// The recipients of a message in memory.
#pragma once
#include <MapiWrapper/MapiBinary.h>

#include <memory>
#include <string>
#include <vector>

struct CRecipient {
    std::string displayName;   // PR_DISPLAY_NAME_A
    std::string emailAddress;  // PR_EMAIL_ADDRESS_A
    std::string addressType;   // PR_ADDRTYPE_A
    LONG recipientType = 0;    // PR_RECIPIENT_TYPE
    CMapiBinary entryId;       // PR_ENTRYID
};

// In the order of the recipient table; owns its entries.
using CRecipients = std::vector<std::unique_ptr<CRecipient>>;
