#include "GivenTimes.h"

#include <MapiStore/Values/StoreError.h>

#include <algorithm>
#include <cstring>

CGivenTimes CGivenTimes::FromBytes(std::string_view bytes) {
    Require(bytes.size() % sizeof(Span) == 0, MAPI_E_CORRUPT_STORE);
    std::vector<Span> spans(bytes.size() / sizeof(Span));
    if (!spans.empty()) std::memcpy(spans.data(), bytes.data(), bytes.size());
    for (std::size_t i = 0; i < spans.size(); ++i) {
        const bool isAfter = i == 0 || spans[i - 1].last < spans[i].first;
        Require(isAfter && spans[i].first <= spans[i].last, MAPI_E_CORRUPT_STORE);
    }
    return CGivenTimes(std::move(spans));
}

std::uint64_t CGivenTimes::Next(std::uint64_t clock) {
    // Nearly always the clock is behind the last span.
    auto after = m_spans.end();
    while (after != m_spans.begin() && std::prev(after)->first > clock)
        --after;
    std::uint64_t time = clock;
    if (after != m_spans.begin()) {
        const auto span = std::prev(after);
        time = std::max(clock, span->last + 1);
        for (; after != m_spans.end() && time >= after->first; after = m_spans.erase(after)) {
            span->last = after->last;
            time = span->last + 1;
        }
        if (time - span->last <= kPause) {
            span->last = time;
            return time;
        }
    }
    m_spans.insert(after, {time, time});
    if (m_spans.size() > kMostSpans) JoinNearest();
    return time;
}

// What lies between the two counts as given. Nights and weekends go first; the way back from a clock that was
// wrong by years stays open.
void CGivenTimes::JoinNearest() {
    std::size_t nearest = 1;
    const auto pauseBefore = [this](std::size_t i) { return m_spans[i].first - m_spans[i - 1].last; };
    for (std::size_t i = 2; i < m_spans.size(); ++i)
        if (pauseBefore(i) < pauseBefore(nearest)) nearest = i;
    m_spans[nearest - 1].last = m_spans[nearest].last;
    m_spans.erase(m_spans.begin() + static_cast<std::ptrdiff_t>(nearest));
}
