// One pair of folders to keep in step, and all that governs a run over it.
#pragma once
#include <windows.h>
#include <string>
#include <vector>

// Bits of CTarnSetting::m_flags. They stand in stored settings and never change.
enum SyncFlag : ULONG {
    SYNC_TO_TARGET = 0x00001,
    SYNC_FROM_TARGET = 0x00002,
    SYNC_STRIP_PRIVATE = 0x00004,
    SYNC_ACTIVE = 0x00008,
    SYNC_CONTINUOUS_TO = 0x00010,
    SYNC_DELETE_IN_TARGET = 0x00020,
    SYNC_AT_START = 0x00040,
    SYNC_TRACE_FILE = 0x00080,
    SYNC_SKIP_PRIVATE = 0x00100,
    SYNC_CHECK_LITTER_BIN = 0x00200,
    SYNC_AT_SHUTDOWN = 0x00400,
    SYNC_CONTINUOUS_FROM = 0x00800,
    SYNC_SUBFOLDERS = 0x01000,
    SYNC_CREATE_SUBFOLDERS = 0x02000,
    SYNC_BY_EMAIL = 0x04000,
    SYNC_BY_DIRECTORY = 0x08000,
    SYNC_ALWAYS_RENEW = 0x10000,
    SYNC_NEW_ONLY = 0x20000,
};

// A member of the group with which a pair is shared by e-mail.
struct CSyncEmailSetting {
    std::string m_name;     // display name
    std::string m_address;  // e-mail address
    std::string m_spare;    // filled by nobody, but kept through the text form
};

// A folder key is "%s:%s": entry ID of the folder and of its store, upper-case hexadecimal. The source
// key is the identity of a record. Copies are independent of their original.
class CTarnSetting {
public:
    CTarnSetting() = default;
    CTarnSetting(const CTarnSetting&) = default;
    CTarnSetting& operator=(const CTarnSetting&) = default;
    virtual ~CTarnSetting() = default;

    bool Has(ULONG flag) const { return (m_flags & flag) != 0; }

    // The record line, and behind it a line "+...\r\n" for each member; without members there is no
    // line end. An empty path is turned into one blank, in the record too, because the reader drops
    // empty fields.
    std::string ToText();

    // Takes a record line without its line end. A run of semicolons counts as one and nothing is
    // escaped, so an empty field moves those behind it forward: a query survives only in a record that
    // has a group identifier. A group or query of blanks is empty. A field that the line does not have stays
    // as it was; never throws for what the line holds.
    void FromText(const std::string& line);

    // Appends one member for each line, "+spare;address;name".
    void EmailsFromText(const std::vector<std::string>& lines);

    std::vector<CSyncEmailSetting> m_emails;
    std::string m_sourceKey;
    std::string m_sourcePath;  // as shown to the user
    std::string m_targetKey;
    std::string m_targetPath;  // as shown; "Email" for a pair that came by mail
    std::string m_query;       // empty: everything
    std::string m_groupId;
    ULONG m_flags = 0;
    LONG m_deleted = 0;  // not zero: takes part in no run, dropped at the next write
};
