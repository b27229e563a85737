// The walk through a mailbox file with libpff, telling a sink what it meets.
#pragma once
#include <Programs/vellum/Mailbox/MailboxReader.h>

#include <functional>

using MailboxSink = std::function<void(const CMailboxEvent&)>;

// Sends the events of the whole file to `sink`, but for End. Answers what stopped the reading, or
// empty. What the sink throws passes through. libpff may crash on a damaged file, so call this in a
// process that may die.
std::string WalkMailbox(const std::string& path, const MailboxSink& sink);
