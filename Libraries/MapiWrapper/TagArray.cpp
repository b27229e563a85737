#include <MapiWrapper/TagArray.h>

CTagArray::CTagArray(const std::vector<ULONG>& tags, TextForm text) {
    m_words.reserve(tags.size() + 1);
    m_words.push_back(static_cast<ULONG>(tags.size()));
    for (const ULONG tag : tags)
        m_words.push_back(TagForStore(tag, text));
}
