#include <MapiWrapper/MapiWrapper_std.h>
#include <Programs/vellum/Items/ItemReport.h>

#include <Platform/Clock.h>
#include <Programs/vellum/Console/Console.h>
#include <Programs/vellum/Console/Utf8.h>
#include <Programs/vellum/Items/ClassReport.h>
#include <Programs/vellum/Items/PropertyReport.h>

#include <cstdio>
#include <ostream>

namespace {

constexpr int maxEmbeddedDepth = 32;

Json MessageToJson(const IMessagePtr& message, int depth);

std::string RecipientType(LONG type) {
    switch (type & 0x0F) {
        case MAPI_ORIG:
            return "from";
        case MAPI_TO:
            return "to";
        case MAPI_CC:
            return "cc";
        case MAPI_BCC:
            return "bcc";
        default:
            return std::to_string(type);
    }
}

std::string TextOf(const CMapiPropValue& value) {
    return value.IsError() ? std::string() : Utf8FromNarrow(value.Str());
}

CMapiRowSet RecipientRows(const IMessagePtr& message) {
    IMAPITablePtr table;
    THROW_ON_FAILURE_FOR(message->GetRecipientTable(0, table.Out()), message.Get());
    table.SetText(message.Text());
    return table.QueryRows();
}

const SPropValue* FindCell(const SRow& row, ULONG id) {
    for (ULONG i = 0; i < row.cValues; ++i)
        if (PROP_ID(row.lpProps[i].ulPropTag) == id && PROP_TYPE(row.lpProps[i].ulPropTag) != PT_ERROR)
            return &row.lpProps[i];
    return nullptr;
}

std::string CellText(const SRow& row, ULONG tag) {
    const SPropValue* cell = FindCell(row, PROP_ID(tag));
    return cell ? TextOf(CMapiPropValue(const_cast<SPropValue*>(cell), false)) : std::string();
}

LONG CellLong(const SRow& row, ULONG tag) {
    const SPropValue* cell = FindCell(row, PROP_ID(tag));
    return cell && PROP_TYPE(cell->ulPropTag) == PT_LONG ? cell->Value.l : 0;
}

Json RecipientsToJson(const IMessagePtr& message) {
    Json array = Json::array();
    const CMapiRowSet rows = RecipientRows(message);
    for (ULONG i = 0; i < rows.Count(); ++i) {
        const SRow& row = rows.Get()->aRow[i];
        Json entry = Json::object();
        entry["type"] = RecipientType(CellLong(row, PR_RECIPIENT_TYPE));
        entry["name"] = CellText(row, PR_DISPLAY_NAME_A);
        entry["address"] = CellText(row, PR_EMAIL_ADDRESS_A);
        entry["properties"] = RowToJson(row, message.RawProp());
        array.push_back(std::move(entry));
    }
    return array;
}

std::string AttachmentName(const IAttachPtr& attachment) {
    for (const ULONG tag : {PR_ATTACH_LONG_FILENAME_A, PR_ATTACH_FILENAME_A, PR_DISPLAY_NAME_A}) {
        const std::string name = ShownText(attachment, tag);
        if (!name.empty()) return name;
    }
    return {};
}

std::vector<ULONG> AttachmentNumbers(IMessage* message) {
    IMAPITablePtr table;
    THROW_ON_FAILURE_FOR(message->GetAttachmentTable(0, table.Out()), message);
    const CMapiRowSet rows = table.QueryRows({PR_ATTACH_NUM});
    std::vector<ULONG> numbers;
    for (ULONG i = 0; i < rows.Count(); ++i)
        numbers.push_back(static_cast<ULONG>(rows.Cell(i, 0).Long()));
    return numbers;
}

Json EmbeddedToJson(const IAttachPtr& attachment, int depth) {
    if (depth >= maxEmbeddedDepth) return nullptr;
    IMessagePtr embedded;
    LPUNKNOWN object = nullptr;
    const HRESULT hr = attachment->OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IMessage, 0, 0, &object);
    if (hr < 0 || !object) return nullptr;
    embedded.Attach(static_cast<IMessage*>(object));
    embedded.SetText(attachment.KnownText());
    return MessageToJson(embedded, depth + 1);
}

Json AttachmentsToJson(const IMessagePtr& message, int depth) {
    Json array = Json::array();
    for (const ULONG number : AttachmentNumbers(message.Get())) {
        Json entry = Json::object();
        IAttachPtr attachment;
        const HRESULT hr = message->OpenAttach(number, nullptr, 0, attachment.Out());
        if (hr < 0) {
            entry["error"] = ErrorName(hr);
        } else {
            attachment.SetText(message.KnownText());
            const LONG method = attachment.GetLongPropOr0(PR_ATTACH_METHOD);
            entry["name"] = AttachmentName(attachment);
            entry["method"] = method;
            entry["properties"] = PropertiesToJson(attachment);
            if (method == ATTACH_EMBEDDED_MSG) entry["item"] = EmbeddedToJson(attachment, depth);
        }
        array.push_back(std::move(entry));
    }
    return array;
}

Json MessageToJson(const IMessagePtr& message, int depth) {
    Json item = Json::object();
    item["subject"] = ShownText(message, PR_SUBJECT_A);
    item["class"] = ShownText(message, PR_MESSAGE_CLASS_A);
    item["properties"] = PropertiesToJson(message);
    item["recipients"] = RecipientsToJson(message);
    item["attachments"] = AttachmentsToJson(message, depth);
    return item;
}

void PrintHead(CConsole& console, const std::string& name, const std::string& value) {
    if (value.empty()) return;
    const std::string label = name + ":" + std::string(name.size() < 10 ? 10 - name.size() : 1, ' ');
    console.Out() << console.OnOut(CConsole::Style::Bold, label) << OneLine(value) << '\n';
}

// " (12 KB)"; empty where the store does not tell.
std::string SizeWords(const IAttachPtr& attachment) {
    const LONG size = attachment.GetLongPropOr0(PR_ATTACH_SIZE);
    if (size <= 0) return {};
    return size < 1024 ? " (" + std::to_string(size) + " bytes)"
                       : " (" + std::to_string((size + 512) / 1024) + " KB)";
}

std::string TimeHead(const IMessagePtr& message) {
    for (const ULONG tag : {PR_CLIENT_SUBMIT_TIME, PR_MESSAGE_DELIVERY_TIME, PR_CREATION_TIME}) {
        CMapiPropValue value;
        if (message.GetOneProp(tag, value) >= 0 && value.Type() == PT_SYSTIME) return ShortTime(value.Time());
    }
    return {};
}

}  // namespace

std::string ShortTime(const FILETIME& time) {
    SYSTEMTIME parts;
    if (TicksOf(time) == 0 || !SplitFileTime(time, parts)) return {};
    char text[32];
    std::snprintf(text, sizeof(text), "%04u-%02u-%02u %02u:%02u", parts.wYear, parts.wMonth, parts.wDay,
                  parts.wHour, parts.wMinute);
    return text;
}

Json ItemToJson(IMessage* message) {
    return MessageToJson(IMessagePtr(message), 0);
}

void PrintItem(CConsole& console, const IMessagePtr& message) {
    PrintHead(console, "Subject", ShownText(message, PR_SUBJECT_A));
    PrintHead(console, "From", ShownText(message, PR_SENDER_NAME_A));
    PrintHead(console, "To", ShownText(message, PR_DISPLAY_TO_A));
    PrintHead(console, "Cc", ShownText(message, PR_DISPLAY_CC_A));
    PrintHead(console, "Date", TimeHead(message));
    PrintHead(console, "Class", ShownText(message, PR_MESSAGE_CLASS_A));
    for (const auto& [name, value] : HeadsOfClass(message))
        PrintHead(console, name, value);
    for (const ULONG number : AttachmentNumbers(message.Get())) {
        IAttachPtr attachment;
        if (message->OpenAttach(number, nullptr, 0, attachment.Out()) < 0) continue;
        attachment.SetText(message.KnownText());
        PrintHead(console, "Attached", AttachmentName(attachment) + SizeWords(attachment));
    }
    std::string body = ShownText(message, PR_BODY_A);
    if (body.empty()) body = Utf8FromNarrow(message.GetBody());
    body = PlainLines(body);
    if (!body.empty()) console.Out() << '\n' << body << (body.back() == '\n' ? "" : "\n");
}
