#include <MapiWrapper/TagArray.h>

CTagArray::CTagArray(const std::vector<ULONG>& tags) {
    m_words.reserve(tags.size() + 1);
    m_words.push_back(static_cast<ULONG>(tags.size()));
    m_words.insert(m_words.end(), tags.begin(), tags.end());
}
