#include <Programs/vellum/Mailbox/Pff/PffEventPipe.h>

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace {

constexpr std::size_t cbBuffer = 64 * 1024;
// More than a writer ever puts into one field; beyond it the stream is out of step.
constexpr std::uint32_t cbFieldLimit = 64u * 1024 * 1024;

void AppendNumber(std::string& buffer, std::uint32_t value) {
    buffer.append(reinterpret_cast<const char*>(&value), sizeof(value));
}

void AppendBytes(std::string& buffer, const std::string& bytes) {
    AppendNumber(buffer, static_cast<std::uint32_t>(bytes.size()));
    buffer += bytes;
}

}  // namespace

void CPffEventWriter::Write(const CMailboxEvent& event) {
    const std::uint32_t head = static_cast<std::uint32_t>(event.kind) | (event.isNamed ? 0x100u : 0u) |
                               (event.more ? 0x200u : 0u) | (event.name.byText ? 0x400u : 0u);
    AppendNumber(m_buffer, head);
    AppendNumber(m_buffer, event.tag);
    AppendNumber(m_buffer, event.number);
    if (event.isNamed) {
        m_buffer.append(reinterpret_cast<const char*>(event.name.set.data()), event.name.set.size());
        AppendNumber(m_buffer, event.name.number);
        AppendBytes(m_buffer, event.name.text);
    }
    AppendBytes(m_buffer, event.text);
    AppendBytes(m_buffer, event.bytes);
    // A whole item may wait in the buffer, but never more, so that the items before a crash arrive.
    if (m_buffer.size() >= cbBuffer || event.kind == MailboxEventKind::ItemEnd) Flush();
}

void CPffEventWriter::Flush() {
    std::size_t done = 0;
    while (done < m_buffer.size()) {
        const ssize_t written = write(m_fd, m_buffer.data() + done, m_buffer.size() - done);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) throw std::runtime_error("the importer has gone");
        done += static_cast<std::size_t>(written);
    }
    m_buffer.clear();
}

bool CPffEventReader::Have(std::size_t cb) {
    while (m_buffer.size() - m_taken < cb) {
        m_buffer.erase(0, m_taken);
        m_taken = 0;
        pollfd wait{m_fd, POLLIN, 0};
        const int ready = poll(&wait, 1, m_silenceMs);
        if (ready < 0 && errno == EINTR) continue;
        if (ready <= 0) return false;
        const std::size_t before = m_buffer.size();
        m_buffer.resize(before + cbBuffer);
        const ssize_t got = read(m_fd, m_buffer.data() + before, cbBuffer);
        m_buffer.resize(before + (got > 0 ? static_cast<std::size_t>(got) : 0));
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) return false;
    }
    return true;
}

bool CPffEventReader::TakeNumber(std::uint32_t& value) {
    if (!Have(sizeof(value))) return false;
    std::memcpy(&value, m_buffer.data() + m_taken, sizeof(value));
    m_taken += sizeof(value);
    return true;
}

bool CPffEventReader::TakeBytes(std::string& bytes) {
    std::uint32_t cb = 0;
    if (!TakeNumber(cb) || cb > cbFieldLimit || !Have(cb)) return false;
    bytes.assign(m_buffer, m_taken, cb);
    m_taken += cb;
    return true;
}

bool CPffEventReader::Read(CMailboxEvent& event) {
    event = CMailboxEvent();
    std::uint32_t head = 0;
    if (!TakeNumber(head) || !TakeNumber(event.tag) || !TakeNumber(event.number)) return false;
    if ((head & 0xFF) > static_cast<std::uint32_t>(MailboxEventKind::Warning)) return false;
    event.kind = static_cast<MailboxEventKind>(head & 0xFF);
    event.isNamed = (head & 0x100) != 0;
    event.more = (head & 0x200) != 0;
    if (event.isNamed) {
        if (!Have(event.name.set.size())) return false;
        std::memcpy(event.name.set.data(), m_buffer.data() + m_taken, event.name.set.size());
        m_taken += event.name.set.size();
        event.name.byText = (head & 0x400) != 0;
        if (!TakeNumber(event.name.number) || !TakeBytes(event.name.text)) return false;
    }
    return TakeBytes(event.text) && TakeBytes(event.bytes);
}
