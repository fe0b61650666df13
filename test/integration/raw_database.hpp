#pragma once

#include <string>

#include <gtest/gtest.h>
#include <sqlite3.h>

namespace xpon::test {

/// A connection of the test's own, past everything that the configuration library checks.
class RawDatabase {
  public:
    explicit RawDatabase(std::string const& path) {
        EXPECT_EQ(sqlite3_open(path.c_str(), &connection), SQLITE_OK);
        int persist = 1; // the log stays beside it, as the library leaves it
        sqlite3_file_control(connection, "main", SQLITE_FCNTL_PERSIST_WAL, &persist);
    }
    ~RawDatabase() { sqlite3_close(connection); }
    RawDatabase(RawDatabase const&) = delete;
    RawDatabase& operator=(RawDatabase const&) = delete;

    void execute(std::string const& sql) {
        EXPECT_EQ(sqlite3_exec(connection, sql.c_str(), nullptr, nullptr, nullptr), SQLITE_OK)
            << sql << ": " << sqlite3_errmsg(connection);
    }

    /// The first value of a query, 0 if there is none.
    std::int64_t number(std::string const& sql) {
        std::int64_t value = 0;
        auto const keep = [](void* out, int /*columns*/, char** values, char** /*names*/) {
            *static_cast<std::int64_t*>(out) = values[0] != nullptr ? std::stoll(values[0]) : 0;
            return 0;
        };
        EXPECT_EQ(sqlite3_exec(connection, sql.c_str(), keep, &value, nullptr), SQLITE_OK)
            << sql << ": " << sqlite3_errmsg(connection);
        return value;
    }

  private:
    sqlite3* connection = nullptr;
};

} // namespace xpon::test
