// For targets without libpff.
#include <Programs/vellum/Mailbox/MailboxReader.h>

std::string MailboxProblem(const std::string&) {
    return "this build of vellum cannot read mailbox files (.pst, .ost); import it with vellum on Linux";
}

std::unique_ptr<IMailboxReader> OpenMailbox(const std::string& path, std::string& error) {
    error = MailboxProblem(path);
    return nullptr;
}
