#include "xpon/cfgdb/history.hpp"

#include "store.hpp"
#include "xpon/cfgdb/printable.hpp"

namespace xpon::cfgdb {

core::Result<std::vector<HistoryEntry>> history(std::filesystem::path const& folder, std::int64_t after) {
    OUTCOME_TRY(store, Store::open({}, folder, Store::Access::Read));
    auto const& connection = store->unshared();
    OUTCOME_TRY(statement, connection.prepare("SELECT number, at, author, path, old, new FROM history "
                                              "WHERE number > ?1 ORDER BY entry"));
    std::vector<HistoryEntry> entries;
    auto rows = statement.run(after);
    while (rows.next()) {
        entries.push_back({rows.number(0), rows.number(1), safe(rows.text(2)), safe(rows.text(3)),
                           safe(rows.text(4)), safe(rows.text(5))});
    }
    OUTCOME_TRY(connection.check_end(rows));
    return entries;
}

} // namespace xpon::cfgdb
