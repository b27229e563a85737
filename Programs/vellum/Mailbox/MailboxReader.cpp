#include <Programs/vellum/Mailbox/MailboxReader.h>

#include <tuple>

bool CMailboxName::operator<(const CMailboxName& other) const {
    return std::tie(set, byText, number, text) < std::tie(other.set, other.byText, other.number, other.text);
}
