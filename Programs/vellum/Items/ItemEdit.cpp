#include <MapiWrapper/ExchangeTags.h>
#include <MapiWrapper/MapiWrapper_std.h>
#include <Programs/vellum/Items/ItemEdit.h>

#include <Platform/Clock.h>
#include <Platform/Files.h>
#include <Programs/vellum/Session/Explain.h>
#include <Tools/CompileRestriction.h>
#include <Tools/INIQuerys.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace {

[[noreturn]] void Refuse(const std::string& name, const std::string& value, const std::string& wanted) {
    throw CCommandError(ExitCode::Usage, "\"" + value + "\" is no value for " + name,
                        "It takes " + wanted + ".");
}

LONGLONG ParseInteger(const std::string& name, const std::string& value, LONGLONG least, LONGLONG most) {
    errno = 0;
    char* end = nullptr;
    const LONGLONG number = std::strtoll(value.c_str(), &end, 0);
    if (value.empty() || *end != '\0' || errno != 0 || number < least || number > most)
        Refuse(name, value, "a number from " + std::to_string(least) + " to " + std::to_string(most));
    return number;
}

double ParseReal(const std::string& name, const std::string& value) {
    char* end = nullptr;
    const double number = std::strtod(value.c_str(), &end);
    if (value.empty() || *end != '\0') Refuse(name, value, "a number such as 2.5");
    return number;
}

bool ParseTruth(const std::string& name, const std::string& value) {
    for (const char* yes : {"true", "yes", "1"})
        if (value == yes) return true;
    for (const char* no : {"false", "no", "0"})
        if (value == no) return false;
    Refuse(name, value, "true or false");
}

FILETIME ParseTime(const std::string& name, const std::string& value) {
    unsigned year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
    char between = ' ';
    int used = 0;
    const int fields = std::sscanf(value.c_str(), "%4u-%2u-%2u%c%2u:%2u%n:%2u%n", &year, &month, &day,
                                   &between, &hour, &minute, &used, &second, &used);
    SYSTEMTIME parts{};
    parts.wYear = static_cast<WORD>(year);
    parts.wMonth = static_cast<WORD>(month);
    parts.wDay = static_cast<WORD>(day);
    parts.wHour = static_cast<WORD>(hour);
    parts.wMinute = static_cast<WORD>(minute);
    parts.wSecond = static_cast<WORD>(second);
    FILETIME time{};
    const bool whole =
        fields == 3 ? value.size() == 10 : fields >= 6 && static_cast<std::size_t>(used) == value.size();
    if (!whole || (between != ' ' && between != 'T') || !JoinFileTime(parts, time))
        Refuse(name, value, "a time such as 2024-05-14 or 2024-05-14 23:39");
    return time;
}

CMapiBinary ParseBytes(const std::string& name, std::string value) {
    for (char& c : value)
        if (c >= 'a' && c <= 'f') c = static_cast<char>(c - 'a' + 'A');
    if (value.size() % 2 != 0 || value.find_first_not_of("0123456789ABCDEF") != std::string::npos)
        Refuse(name, value, "bytes in hexadecimal, two digits each");
    return BinaryFromHex(value);
}

std::vector<std::string> ParseList(const std::string& value) {
    std::vector<std::string> parts;
    SplitToArray(value, ";", parts);
    return parts;
}

void SetTexts(IMessagePtr& message, ULONG tag, const std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    for (const std::string& text : texts)
        pointers.push_back(const_cast<char*>(text.c_str()));
    SPropValue value{};
    value.ulPropTag = CHANGE_PROP_TYPE(tag, PT_MV_STRING8);
    value.Value.MVszA.cValues = static_cast<ULONG>(pointers.size());
    value.Value.MVszA.lppszA = pointers.data();
    CheckCall(message.SetOneProp(&value), "The value cannot be set", ExitCode::Usage);
}

void SetLongText(IMessagePtr& message, ULONG tag, const std::string& text) {
    message.SetStrProp(CHANGE_PROP_TYPE(tag, PT_STRING8), text);
}

void SetParsed(IMessagePtr& message, ULONG tag, const std::string& name, const std::string& text) {
    CMapiBinary bytes;
    SPropValue value{};
    value.ulPropTag = tag;
    switch (PROP_TYPE(tag)) {
        case PT_STRING8:
        case PT_UNICODE:
            return SetLongText(message, tag, text);
        case PT_MV_STRING8:
        case PT_MV_UNICODE:
            return SetTexts(message, tag, ParseList(text));
        case PT_I2:
            value.Value.i = static_cast<short>(ParseInteger(name, text, -32768, 32767));
            break;
        case PT_LONG:
            value.Value.l = static_cast<LONG>(ParseInteger(name, text, -2147483648LL, 4294967295LL));
            break;
        case PT_I8:
            value.Value.li.QuadPart = ParseInteger(name, text, INT64_MIN, INT64_MAX);
            break;
        case PT_BOOLEAN:
            value.Value.b = ParseTruth(name, text) ? 1 : 0;
            break;
        case PT_R4:
            value.Value.flt = static_cast<float>(ParseReal(name, text));
            break;
        case PT_DOUBLE:
            value.Value.dbl = ParseReal(name, text);
            break;
        case PT_SYSTIME:
            value.Value.ft = ParseTime(name, text);
            break;
        case PT_BINARY:
            bytes = ParseBytes(name, text);
            value.Value.bin = bytes.Bin();
            break;
        default:
            throw CCommandError(ExitCode::Usage,
                                name + " has a type that cannot be written on the command line");
    }
    CheckCall(message.SetOneProp(&value), "\"" + name + "\" cannot be set to \"" + text + "\"",
              ExitCode::Usage);
}

// The formatted bodies would go on showing the old text.
void ReplaceBody(IMessagePtr& message, const std::string& text) {
    CTagArray formatted({PR_RTF_COMPRESSED, PR_HTML});
    message->DeleteProps(formatted.Get(), nullptr);
    message.SetBody(text);
}

class CTagFinder {
public:
    CTagFinder(CProfileSession& session, const CFolderRef& folder) {
        PrepareQueryCompiler(m_compiler, folder.folder.Get(), session.Mapi().Raw(), nullptr);
    }
    ULONG TagOf(const std::string& name) {
        ULONG tag = TagFromName(name);
        if (tag == 0) tag = m_compiler.TagOfWord(name);
        if (tag == 0 || PROP_TYPE(tag) == PT_UNSPECIFIED)
            throw CCommandError(
                ExitCode::Usage, "There is no property \"" + name + "\"",
                "Use a word of the query language (Subject), a published name (PR_SUBJECT) or a tag "
                "with its type (0x0037001E).");
        return tag;
    }

private:
    CCompileRestriction m_compiler;
};

void AddRecipient(IMessagePtr& message, const std::string& address, LONG type) {
    SPropValue values[4]{};
    values[0].ulPropTag = PR_DISPLAY_NAME_A;
    values[0].Value.lpszA = const_cast<char*>(address.c_str());
    values[1].ulPropTag = PR_EMAIL_ADDRESS_A;
    values[1].Value.lpszA = const_cast<char*>(address.c_str());
    values[2].ulPropTag = PR_ADDRTYPE_A;
    values[2].Value.lpszA = const_cast<char*>("SMTP");
    values[3].ulPropTag = PR_RECIPIENT_TYPE;
    values[3].Value.l = type;
    ADRLIST list{};
    list.cEntries = 1;
    list.aEntries[0].cValues = 4;
    list.aEntries[0].rgPropVals = values;
    CStoreText given(message.Text());
    CheckCall(message->ModifyRecipients(MODRECIP_ADD, given.Addresses(&list)),
              "The recipient \"" + address + "\" cannot be added", ExitCode::Usage);
}

void AttachFile(IMessagePtr& message, const std::string& path) {
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(OpenFile(path, "rb"), std::fclose);
    if (!file)
        throw CCommandError(ExitCode::NotOpen,
                            "The file \"" + path + "\" cannot be read: " + std::strerror(errno));
    CheckCall(message.AddAttachmentFile(file.get(), path.c_str()),
              "The file \"" + path + "\" cannot be attached", ExitCode::NotOpen);
}

}  // namespace

void ApplyChanges(CProfileSession& session, const CFolderRef& folder, IMessagePtr& message,
                  const CItemChanges& changes) {
    if (!changes.messageClass.empty()) message.SetStrProp(PR_MESSAGE_CLASS_A, changes.messageClass);
    if (changes.hasSubject) message.SetStrProp(PR_SUBJECT_A, changes.subject);
    if (changes.hasBody) ReplaceBody(message, changes.body);

    CTagFinder tags(session, folder);
    for (const std::string& assignment : changes.assignments) {
        const auto equals = assignment.find('=');
        if (equals == std::string::npos || equals == 0)
            throw CCommandError(ExitCode::Usage, "\"" + assignment + "\" sets nothing",
                                "Write NAME=VALUE, for example Sensitivity=2.");
        const std::string name = assignment.substr(0, equals);
        SetParsed(message, tags.TagOf(name), name, assignment.substr(equals + 1));
    }
    for (const std::string& name : changes.removals) {
        CTagArray removed({tags.TagOf(name)});
        CheckCall(message->DeleteProps(removed.Get(), nullptr), "\"" + name + "\" cannot be removed",
                  ExitCode::Usage);
    }
    for (const std::string& address : changes.to)
        AddRecipient(message, address, MAPI_TO);
    for (const std::string& address : changes.cc)
        AddRecipient(message, address, MAPI_CC);
    for (const std::string& path : changes.attachments)
        AttachFile(message, path);
}
