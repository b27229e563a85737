#include "RecipientList.h"

// The layout is that of a multi-valued binary.
std::vector<std::string_view> SplitRecipients(std::string_view list) {
    return SplitElements(list);
}

std::string JoinRecipients(const std::vector<std::string>& blocks) {
    if (blocks.empty()) return {};
    return JoinElements({blocks.begin(), blocks.end()});
}
