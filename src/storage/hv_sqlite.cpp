#include "storage/hv_sqlite.h"

#include <sys/stat.h>
#include <unistd.h>


#ifdef RAVEL_HAVE_SQLITE
#include <sqlite3.h>
#endif

#ifdef RAVEL_HAVE_SQLITE

bool sqlite_db::offered() { return true; }

sqlite_statement::~sqlite_statement() { sqlite3_finalize(statement_); }

void sqlite_statement::bind_null(int column) { bind_failed_ |= sqlite3_bind_null(statement_, column) != SQLITE_OK; }

void sqlite_statement::bind_int(int column, int64_t value) {
    bind_failed_ |= sqlite3_bind_int64(statement_, column, value) != SQLITE_OK;
}

void sqlite_statement::bind_text(int column, const char* text, size_t size) {
    // Static: the caller's bytes outlive run(), so the library need not copy them.
    bind_failed_ |= sqlite3_bind_text64(statement_, column, size == 0 ? "" : text, size, SQLITE_STATIC, SQLITE_UTF8) != SQLITE_OK;
}

bool sqlite_statement::run() {
    int code = bind_failed_ ? SQLITE_MISUSE : SQLITE_ROW;
    while (code == SQLITE_ROW) code = sqlite3_step(statement_);
    sqlite3_reset(statement_);
    sqlite3_clear_bindings(statement_);
    bind_failed_ = false;
    return code == SQLITE_DONE;
}

bool sqlite_db::check(int code) {
    if (code == SQLITE_OK || code == SQLITE_DONE) return true;
    error_ = db_ != nullptr ? sqlite3_errmsg(db_) : sqlite3_errstr(code);
    return false;
}

bool sqlite_db::create(const std::string& path) {
    close();
    // Only files are replaced: a device, a folder or a link named by mistake is left alone.
    for (const char* beside : {"", "-journal", "-wal", "-shm"}) {
        const std::string name = path + beside;
        struct stat status;
        if (lstat(name.c_str(), &status) != 0) continue;  // nothing there, or the open will say why
        if (!S_ISREG(status.st_mode)) {
            error_ = name + " is not a regular file";
            return false;
        }
        if (unlink(name.c_str()) != 0) {
            error_ = "can't remove " + name;
            return false;
        }
    }
    const int code = sqlite3_open_v2(path.c_str(), &db_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
    if (code != SQLITE_OK) {
        check(code);
        close();
        return false;
    }
    return true;
}

bool sqlite_db::exec(const char* sql) { return db_ != nullptr && check(sqlite3_exec(db_, sql, nullptr, nullptr, nullptr)); }

sqlite_statement* sqlite_db::prepare(const char* sql) {
    sqlite3_stmt* statement = nullptr;
    if (db_ == nullptr || !check(sqlite3_prepare_v3(db_, sql, -1, SQLITE_PREPARE_PERSISTENT, &statement, nullptr)))
        return nullptr;
    statements_.emplace_back(new sqlite_statement(statement));
    return statements_.back().get();
}

int64_t sqlite_db::last_id() const { return db_ != nullptr ? sqlite3_last_insert_rowid(db_) : 0; }

void sqlite_db::close() {
    statements_.clear();
    if (db_ != nullptr) sqlite3_close(db_);
    db_ = nullptr;
}

#else  // built without libsqlite3: nothing opens

bool sqlite_db::offered() { return false; }
sqlite_statement::~sqlite_statement() = default;
void sqlite_statement::bind_null(int) {}
void sqlite_statement::bind_int(int, int64_t) {}
void sqlite_statement::bind_text(int, const char*, size_t) {}
bool sqlite_statement::run() { return false; }
bool sqlite_db::check(int) { return false; }
bool sqlite_db::create(const std::string&) {
    error_ = "not offered in this build";
    return false;
}
bool sqlite_db::exec(const char*) { return false; }
sqlite_statement* sqlite_db::prepare(const char*) { return nullptr; }
int64_t sqlite_db::last_id() const { return 0; }
void sqlite_db::close() {}

#endif

sqlite_db::~sqlite_db() { close(); }
