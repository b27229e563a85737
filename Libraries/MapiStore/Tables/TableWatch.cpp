#include "TableWatch.h"

#include <MapiStore/Values/StoreError.h>

#include <algorithm>

namespace {

// Above so many changes at once a watcher is told to read the table again.
constexpr std::size_t kTellSingly = 256;

}  // namespace

CTableWatch::CTableWatch(const std::shared_ptr<CStoreCore>& core, const std::shared_ptr<CTableView>& view,
                         IMAPIAdviseSink* sink)
    : CConnection(core, sink), m_view(view) {
    Learn();
}

CTableWatch::Known CTableWatch::Describe(const IRow& row) const {
    Known known;
    known.stamp = m_view->Source().StampOf(row);
    AppendSortKey(row, m_view->Sort(), known.place);
    return known;
}

void CTableWatch::Remember(RowKey key, Known known) {
    Drop(key);
    m_places.emplace(known.place, key);
    m_known[key] = std::move(known);
}

void CTableWatch::Drop(RowKey key) {
    const auto found = m_known.find(key);
    if (found == m_known.end()) return;
    m_places.erase({found->second.place, key});
    m_known.erase(found);
}

void CTableWatch::Learn() {
    m_known.clear();
    m_places.clear();
    m_setting = m_view->Setting();
    const CRestriction* restriction = m_view->Restriction();
    m_view->Source().Scan({}, [&](RowKey key, const IRow& row) {
        if (!restriction || restriction->Matches(row)) Remember(key, Describe(row));
        return true;
    });
}

SPropValue CTableWatch::KeyValue(RowKey key) {
    m_keys.push_back(key);
    SPropValue value{};
    value.ulPropTag = PR_INSTANCE_KEY;
    value.Value.bin.cb = sizeof(RowKey);
    value.Value.bin.lpb = reinterpret_cast<LPBYTE>(&m_keys.back());
    return value;
}

void CTableWatch::TellRow(ULONG event, RowKey key, const IRow* row,
                          std::vector<NOTIFICATION>& notifications) {
    NOTIFICATION notification{};
    notification.ulEventType = fnevTableModified;
    TABLE_NOTIFICATION& table = notification.info.tab;
    table.ulTableEvent = event;
    table.propIndex = KeyValue(key);
    table.propPrior.ulPropTag = PR_NULL;
    if (row) {
        const auto at = m_places.find({m_known[key].place, key});
        if (at != m_places.end() && at != m_places.begin()) table.propPrior = KeyValue(std::prev(at)->second);
        CRootArena arena;
        table.row = m_view->WriteRow(*row, key, arena);
        m_owned.Add(table.row);
    }
    notifications.push_back(notification);
}

void CTableWatch::CompareRow(RowKey key, std::vector<NOTIFICATION>& notifications) {
    const CRestriction* restriction = m_view->Restriction();
    const auto before = m_known.find(key);
    const bool was = before != m_known.end();
    bool is = false;
    m_view->Source().Read(key, [&](const IRow& row) {
        is = !restriction || restriction->Matches(row);
        if (!is) return;
        Known now = Describe(row);
        if (was && now.stamp == before->second.stamp && now.place == before->second.place) return;
        Remember(key, std::move(now));
        TellRow(was ? TABLE_ROW_MODIFIED : TABLE_ROW_ADDED, key, &row, notifications);
    });
    if (was && !is) {
        Drop(key);
        TellRow(TABLE_ROW_DELETED, key, nullptr, notifications);
    }
}

void CTableWatch::CompareAll(std::vector<NOTIFICATION>& notifications) {
    const CRestriction* restriction = m_view->Restriction();
    std::vector<RowKey> differing;
    std::size_t seen = 0;
    std::set<RowKey> there;
    m_view->Source().Scan({}, [&](RowKey key, const IRow& row) {
        if (restriction && !restriction->Matches(row)) return true;
        there.insert(key);
        const auto known = m_known.find(key);
        if (known == m_known.end()) {
            differing.push_back(key);
            return true;
        }
        ++seen;
        if (m_view->Source().StampOf(row) != known->second.stamp) differing.push_back(key);
        return true;
    });
    if (seen != m_known.size()) {
        for (const auto& [key, known] : m_known)
            if (!there.count(key)) differing.push_back(key);
    }
    if (differing.size() > kTellSingly) {
        Learn();
        NOTIFICATION changed{};
        changed.ulEventType = fnevTableModified;
        changed.info.tab.ulTableEvent = TABLE_CHANGED;
        changed.info.tab.propIndex.ulPropTag = PR_NULL;
        changed.info.tab.propPrior.ulPropTag = PR_NULL;
        notifications.push_back(changed);
        return;
    }
    for (RowKey key : differing)
        CompareRow(key, notifications);
}

void CTableWatch::Collect(CStoreCore&, const std::vector<StoreEvent>& events, bool outside,
                          std::vector<NOTIFICATION>& notifications) {
    m_keys.clear();
    m_owned.Clear();
    // Another restriction or order: what changed meanwhile was told by the call that set it.
    if (m_setting != m_view->Setting()) {
        Learn();
        return;
    }
    std::vector<RowKey> touched;
    for (const StoreEvent& event : events)
        m_view->Source().ListTouched(event, touched);
    std::sort(touched.begin(), touched.end());
    touched.erase(std::unique(touched.begin(), touched.end()), touched.end());
    if (outside || touched.size() > kTellSingly) {
        CompareAll(notifications);
        return;
    }
    for (RowKey key : touched)
        CompareRow(key, notifications);
}
