#include <MapiWrapper/TextConvert.h>

void SplitToArray(const std::string& text, const char* delimiters, std::vector<std::string>& array) {
    const std::string all = text.c_str();
    size_t start = all.find_first_not_of(delimiters);
    while (start != std::string::npos) {
        const size_t end = all.find_first_of(delimiters, start);
        array.push_back(all.substr(start, end == std::string::npos ? end : end - start));
        start = end == std::string::npos ? end : all.find_first_not_of(delimiters, end);
    }
}

void TextToList(const std::string& text, std::vector<std::string>& array) {
    if (text.find(';') == std::string::npos)
        array.push_back(text);
    else
        SplitToArray(text, ";", array);
}
