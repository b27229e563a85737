#include "HistoryModel.h"

namespace {
CModelVersion& SideOf(CModelItem& item, bool inSource) {
    return inSource ? item.source : item.target;
}

bool IsWritten(const CModelVersion& version) {
    return version.pending == Pending::New || version.pending == Pending::Changed;
}

// Whether the side's list of this run names the item.
bool IsListed(const CModelVersion& version, bool direction, bool deletions) {
    return direction && (IsWritten(version) || (deletions && version.pending == Pending::Deleted));
}
}  // namespace

void CHistoryModel::Create(const std::string& name, bool inSource, const std::string& body, bool stamped) {
    CModelItem& item = items[name];
    CModelVersion& version = SideOf(item, inSource);
    version = {true, body, Pending::New, false};
    item.stamped = stamped;
    m_kept.insert(body);
}

// What a person sees and writes over is no longer missed.
void CHistoryModel::Change(const std::string& name, bool inSource, const std::string& body) {
    CModelVersion& version = SideOf(items[name], inSource);
    m_kept.erase(version.body);
    m_kept.insert(body);
    version.body = body;
    if (version.pending != Pending::New) version.pending = Pending::Changed;
}

void CHistoryModel::Remove(const std::string& name, bool inSource) {
    CModelVersion& version = SideOf(items[name], inSource);
    m_kept.erase(version.body);
    version.there = false;
    version.body.clear();
    version.pending = version.remembered ? Pending::Deleted : Pending::None;
}

void CHistoryModel::Carry(const CModelVersion& from, CModelVersion& to) {
    to.there = true;
    to.body = from.body;
}

void CHistoryModel::RunItem(CModelItem& item, const CModelOptions& options) {
    CModelVersion& source = item.source;
    CModelVersion& target = item.target;
    const bool inSource = IsListed(source, options.toTarget, options.deletions);
    const bool inTarget = IsListed(target, options.toSource, options.deletions);
    // Both changed: each keeps its version. Changed in the source and gone from the target: the same.
    if (inSource && inTarget && IsWritten(source)) return;
    if (inSource && IsWritten(source)) {
        Carry(source, target);
        item.stamped = true;
    } else if (inSource) {
        target.there = false;
    }
    if (inTarget && !IsWritten(target)) {
        source.there = false;
    } else if (inTarget && target.there) {
        Carry(target, source);
        item.stamped = true;
    }
}

// An item without a link is new to every run until it is carried across. A change in a direction that does
// not run is remembered as if it had been carried.
void CHistoryModel::Remember(CModelItem& item, CModelVersion& version) {
    const bool staysNew = version.there && version.pending == Pending::New && !item.stamped;
    if (!staysNew) version.pending = Pending::None;
    version.remembered = version.there;
    if (!version.there) version.body.clear();
}

void CHistoryModel::Run(const CModelOptions& options) {
    bool anything = false;
    for (auto& [name, item] : items)
        if (!item.ignored)
            anything = anything || IsListed(item.source, options.toTarget, options.deletions) ||
                       IsListed(item.target, options.toSource, options.deletions);
    if (!anything) return;
    for (auto& [name, item] : items)
        if (!item.ignored) RunItem(item, options);
    for (auto& [name, item] : items) {
        if (item.ignored) continue;
        Remember(item, item.source);
        Remember(item, item.target);
    }
}

void CHistoryModel::Adopt(const std::map<std::string, std::string>& source,
                          const std::map<std::string, std::string>& target) {
    for (auto& [name, item] : items) {
        for (const bool inSource : {true, false}) {
            const auto& seen = inSource ? source : target;
            const auto found = seen.find(name);
            CModelVersion& version = SideOf(item, inSource);
            const bool there = found != seen.end();
            version = {there, there ? found->second : "", Pending::None, there};
        }
        item.stamped = item.branched = true;
    }
}

std::map<std::string, std::string> CHistoryModel::Contents(bool ofSource) const {
    std::map<std::string, std::string> contents;
    for (const auto& [name, item] : items) {
        const CModelVersion& version = ofSource ? item.source : item.target;
        if (version.there) contents[name] = version.body;
    }
    return contents;
}
