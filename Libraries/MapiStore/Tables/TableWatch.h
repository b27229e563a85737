// The advise connection of a table: compares the rows that it showed with those it shows now.
#pragma once
#include <MapiStore/Core/Notifier.h>
#include "TableView.h"

#include <deque>
#include <set>
#include <unordered_map>

class CTableWatch final : public CConnection {
public:
    // Under the store's lock: remembers the rows of the moment.
    CTableWatch(const std::shared_ptr<CStoreCore>& core, const std::shared_ptr<CTableView>& view,
                IMAPIAdviseSink* sink);

protected:
    void Collect(CStoreCore& core, const std::vector<StoreEvent>& events, bool outside,
                 std::vector<NOTIFICATION>& notifications) override;

private:
    struct Known {
        std::uint64_t stamp = 0;
        std::string place;  // where the row stands among the others
    };
    using Place = std::pair<std::string, RowKey>;

    void Learn();
    Known Describe(const IRow& row) const;
    void Remember(RowKey key, Known known);
    void Drop(RowKey key);
    void CompareAll(std::vector<NOTIFICATION>& notifications);
    void CompareRow(RowKey key, std::vector<NOTIFICATION>& notifications);
    void TellRow(ULONG event, RowKey key, const IRow* row, std::vector<NOTIFICATION>& notifications);
    SPropValue KeyValue(RowKey key);

    const std::shared_ptr<CTableView> m_view;
    unsigned m_setting = 0;
    std::unordered_map<RowKey, Known> m_known;
    std::set<Place> m_places;

    // What the notifications of one call point to.
    std::deque<RowKey> m_keys;
    CRowSet m_owned;
};
