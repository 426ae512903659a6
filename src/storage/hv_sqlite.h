// A SQLite database written through libsqlite3: one owner of the connection and of its prepared
// statements, every answer checked, the library's own text kept for the caller to word. It prints
// nothing. A build without libsqlite3 has the classes, which then open nothing.
#pragma once
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

struct sqlite3;
struct sqlite3_stmt;

// One prepared statement. Values are bound by position, from 1, and must stay in place until run();
// a failed bind is kept and makes run() fail.
class sqlite_statement {
public:
    explicit sqlite_statement(sqlite3_stmt* statement) : statement_(statement) {}
    ~sqlite_statement();
    sqlite_statement(const sqlite_statement&) = delete;
    sqlite_statement& operator=(const sqlite_statement&) = delete;

    void bind_null(int column);
    void bind_int(int column, int64_t value);
    void bind_text(int column, const char* text, size_t size);
    void bind_text(int column, const std::string& text) { bind_text(column, text.data(), text.size()); }
    // Runs the statement to its end and makes it ready for new values; false on failure.
    bool run();

private:
    sqlite3_stmt* statement_;
    bool bind_failed_ = false;
};

class sqlite_db {
public:
    sqlite_db() = default;
    ~sqlite_db();
    sqlite_db(const sqlite_db&) = delete;
    sqlite_db& operator=(const sqlite_db&) = delete;

    // Built with libsqlite3.
    static bool offered();

    // A new, empty database at `path`: a file there is replaced, and journals left beside it by an
    // earlier run are removed first, so that none of them is applied to the new file.
    bool create(const std::string& path);
    bool is_open() const { return db_ != nullptr; }
    // Statements that take no values, run at once.
    bool exec(const char* sql);
    // A statement kept with the database until it closes; null on failure.
    sqlite_statement* prepare(const char* sql);
    // The row id of the last row inserted.
    int64_t last_id() const;
    // The library's words for the last failure.
    const std::string& error() const { return error_; }
    // Statements first, then the connection; an open transaction is rolled back by the library.
    void close();

private:
    bool check(int code);

    sqlite3* db_ = nullptr;
    std::vector<std::unique_ptr<sqlite_statement>> statements_;
    std::string error_;
};
