// An SPropTagArray made of a list.
#pragma once
#include <MapiWrapper/StoreText.h>
#include <Platform/MapiHeaders.h>

#include <vector>

class CTagArray {
public:
    // With tags of text as a store of that form is asked for them.
    explicit CTagArray(const std::vector<ULONG>& tags, TextForm text = TextForm::Same);
    // Valid while the object lives; null for an empty list, which the published calls take as "all".
    SPropTagArray* Get() {
        return m_words.size() > 1 ? reinterpret_cast<SPropTagArray*>(m_words.data()) : nullptr;
    }

private:
    std::vector<ULONG> m_words;  // the count, then the tags
};
