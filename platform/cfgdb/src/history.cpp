#include "xpon/cfgdb/history.hpp"

#include "store.hpp"
#include "xpon/cfgdb/printable.hpp"

namespace xpon::cfgdb {

namespace {

/// Adds how and why the transactions came about, where that is recorded. They are ordered by number.
core::Result<void> add_notes(std::vector<PastTransaction>& transactions, Connection const& connection) {
    OUTCOME_TRY(there, has_table(connection, "transaction_note"));
    if (!there || transactions.empty()) {
        return core::success();
    }
    OUTCOME_TRY(statement, connection.prepare("SELECT number, account, kind, comment FROM transaction_note "
                                              "WHERE number >= ?1 ORDER BY number"));
    auto transaction = transactions.begin();
    auto rows = statement.run(transaction->number);
    while (rows.next()) {
        while (transaction != transactions.end() && transaction->number < rows.number(0)) {
            ++transaction;
        }
        if (transaction != transactions.end() && transaction->number == rows.number(0)) {
            transaction->account = safe(rows.text(1));
            transaction->kind = safe(rows.text(2));
            transaction->comment = safe(rows.text(3));
        }
    }
    return connection.check_end(rows);
}

} // namespace

core::Result<std::vector<PastTransaction>> history(std::filesystem::path const& folder, std::int64_t after) {
    OUTCOME_TRY(store, Store::open({}, folder, Store::Access::Read));
    auto const& connection = store->unshared();
    OUTCOME_TRY(connection.execute("BEGIN"));
    Rollback const one_state{connection};
    // Older transactions are dropped row by row, so what is left of one may be incomplete.
    OUTCOME_TRY(statement, connection.prepare("SELECT number, at, author, path, old, new FROM history WHERE "
                                              "number > max(?1, (SELECT max(number) FROM history) - ?2) "
                                              "ORDER BY number, entry"));
    std::vector<PastTransaction> transactions;
    auto rows = statement.run(after, kept_transactions);
    while (rows.next()) {
        if (transactions.empty() || transactions.back().number != rows.number(0)) {
            transactions.push_back({rows.number(0), rows.number(1), safe(rows.text(2)), {}, {}, {}, {}});
        }
        transactions.back().changes.push_back({safe(rows.text(3)), safe(rows.text(4)), safe(rows.text(5))});
    }
    OUTCOME_TRY(connection.check_end(rows));
    OUTCOME_TRY(add_notes(transactions, connection));
    return transactions;
}

} // namespace xpon::cfgdb
