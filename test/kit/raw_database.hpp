#pragma once

#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sqlite3.h>

namespace xpon::test {

/// A connection to a database file, past every check of the configuration library.
class RawDatabase {
  public:
    explicit RawDatabase(std::filesystem::path const& file,
                         std::chrono::milliseconds patience = std::chrono::seconds{5}) {
        EXPECT_EQ(sqlite3_open(file.c_str(), &connection), SQLITE_OK);
        int persist = 1; // the log stays beside it, as the library leaves it
        sqlite3_file_control(connection, "main", SQLITE_FCNTL_PERSIST_WAL, &persist);
        sqlite3_busy_timeout(connection, static_cast<int>(patience.count()));
    }
    ~RawDatabase() { sqlite3_close(connection); }
    RawDatabase(RawDatabase const&) = delete;
    RawDatabase& operator=(RawDatabase const&) = delete;

    void run(std::string const& sql) const { rows(sql); }

    /// The rows as text, columns joined by '|'.
    std::vector<std::string> rows(std::string const& sql) const {
        std::vector<std::string> all;
        auto const add = [](void* out, int columns, char** values, char**) {
            std::string row;
            for (int i = 0; i < columns; ++i) {
                row += (i == 0 ? "" : "|") + std::string{values[i] != nullptr ? values[i] : "NULL"};
            }
            static_cast<std::vector<std::string>*>(out)->push_back(row);
            return 0;
        };
        EXPECT_EQ(sqlite3_exec(connection, sql.c_str(), add, &all, nullptr), SQLITE_OK)
            << sql << ": " << sqlite3_errmsg(connection);
        return all;
    }

    /// The first row; empty if there is none.
    std::string value(std::string const& sql) const {
        auto const all = rows(sql);
        return all.empty() ? "" : all.front();
    }

    /// The number that the first row begins with.
    std::int64_t number(std::string const& sql) const { return std::stoll(value(sql)); }

  private:
    sqlite3* connection = nullptr;
};

} // namespace xpon::test
