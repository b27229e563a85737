// Values of a mailbox file as MAPI values, with the memory behind them.
#pragma once
#include <Platform/MapiHeaders.h>
#include <Programs/vellum/Mailbox/MailboxReader.h>

#include <deque>
#include <string>
#include <vector>

class CPropertyBatch {
public:
    // Converts the value of a Property event and keeps it under `tag` (its type is that of the event).
    // False for bytes that do not fit the type; nothing is kept then.
    bool Add(ULONG tag, const CMailboxEvent& event);
    void AddLong(ULONG tag, LONG value);

    bool Has(ULONG id) const;  // by property identifier
    LONG LongOr(ULONG id, LONG otherwise) const;
    std::string TextOrEmpty(ULONG id) const;  // in the system's code page

    ULONG Count() const { return static_cast<ULONG>(m_values.size()); }
    SPropValue* Values() { return m_values.data(); }
    std::size_t CbMemory() const { return m_cb; }
    void Clear();

private:
    bool FillFixed(SPropValue& value, const std::string& bytes);
    bool FillMulti(SPropValue& value, const std::string& bytes);
    char* Keep(std::string bytes);
    WCHAR* KeepWide(std::wstring text);
    const SPropValue* Find(ULONG id) const;

    std::vector<SPropValue> m_values;
    std::deque<std::string> m_bytes;
    std::deque<std::wstring> m_texts;
    std::size_t m_cb = 0;
};
