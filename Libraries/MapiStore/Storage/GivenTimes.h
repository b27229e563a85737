// Which times a store has given to what was saved in it, so that none is given twice. A time that is given
// stays near the clock: one save under a clock that is years ahead does not put everything after it there
// too.
#pragma once
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// The times lie in spans; within one they were given without a long pause. A clock that goes back into a span
// is taken to its end, one that goes back in front of a span, where nothing was given yet, is believed.
// Ticks of FILETIME.
class CGivenTimes {
public:
    struct Span {
        std::uint64_t first, last;
    };

    CGivenTimes() = default;
    // In ascending order, none touching the next.
    explicit CGivenTimes(std::vector<Span> spans) : m_spans(std::move(spans)) {}
    // What Bytes() gave; throws MAPI_E_CORRUPT_STORE for anything else.
    static CGivenTimes FromBytes(std::string_view bytes);
    std::string_view Bytes() const {
        return {reinterpret_cast<const char*>(m_spans.data()), m_spans.size() * sizeof(Span)};
    }

    // The clock's time, or if that may have been given the next that was not. Counts as given.
    std::uint64_t Next(std::uint64_t clock);
    std::uint64_t Latest() const { return m_spans.empty() ? 0 : m_spans.back().last; }

    // A pause that begins a new span: so far ahead a clock that is set back may leave the store.
    static constexpr std::uint64_t kPause = 600'000'000'0;  // ten minutes
    static constexpr std::size_t kMostSpans = 16;

private:
    void JoinNearest();
    std::vector<Span> m_spans;
};
