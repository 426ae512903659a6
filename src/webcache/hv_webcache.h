// The IE10+ URL cache, one ESE database per user (WebCacheV01.dat), read through libesedb: the
// Containers table names each Container_N table; every record of those, and of LeakFiles, comes out as
// a plain record, one at a time. Nothing is formatted here and nothing printed: what can't be read is
// an answer the caller words. A build without libesedb has the class, which then opens nothing.
#pragma once
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

// One row of the Containers table.
struct webcache_container {
    uint64_t id = 0;
    std::string name;       // Content, History, MSHist01YYYYMMDDYYYYMMDD, Cookies, iedownload, ...
    std::string directory;  // the cache folder's path
    std::string partition_id;
    std::vector<std::string> secure_directories;  // the 8-character cache folder names, in order

    // The folder name a record's SecureDirectory points at; "" when it points at none. The numbers
    // count from 1: the per-folder counts of SecureUsage match them so.
    std::string secure_directory(uint64_t number) const;
};

// One record of a Container_N table, or of LeakFiles (`leak`: only the entry id, the creation time and
// the file name are set). Stamps are FILETIMEs as stored, 0 where the column is empty.
struct webcache_record {
    const webcache_container* container = nullptr;  // null for LeakFiles
    bool leak = false;
    uint64_t entry_id = 0;
    uint64_t secure_directory = ~uint64_t(0);
    uint64_t file_size = 0;
    uint32_t type = 0, flags = 0, access_count = 0, sync_count = 0, exemption_delta = 0;
    uint64_t sync_time = 0, creation_time = 0, expiry_time = 0, modified_time = 0, accessed_time = 0,
             post_check_time = 0;
    std::string url, file_name, request_headers, response_headers, redirect_url;

    void clear();
};

// What the walk hands on.
class webcache_sink {
public:
    virtual ~webcache_sink() = default;
    // A record, valid until the call returns; false stops the walk.
    virtual bool record(const webcache_record& record) = 0;
    // A table the library can't read: all of its records (missing == 0) or `missing` of them are lost;
    // `library_text` is the library's own account of it.
    virtual void table_unreadable(const std::string& table, uint64_t missing, const std::string& library_text) = 0;
};

enum class webcache_fault {
    none,
    not_offered,  // built without libesedb
    refused,      // the library refused the database, or it has no Containers table it can read
};

class webcache_database {
public:
    webcache_database();
    ~webcache_database();
    webcache_database(const webcache_database&) = delete;
    webcache_database& operator=(const webcache_database&) = delete;

    // Built with libesedb.
    static bool offered();

    // Opens the database at `path` for reading only and reads its Containers table.
    webcache_fault open(const std::string& path);
    // The same over bytes in memory, not owned (tests and fuzzers).
    webcache_fault open_memory(const uint8_t* bytes, size_t size);
    void close();

    const std::vector<webcache_container>& containers() const { return containers_; }
    // After a refusal, the library's own account of it ("" when it gave none).
    const std::string& library_text() const { return library_text_; }
    // Every record of every container's table, in the Containers table's order, then LeakFiles; a
    // container whose table isn't in the database has no records, and a table named twice is walked
    // once. False when the sink stopped it.
    bool walk(webcache_sink& sink);

private:
    struct library;  // libesedb's handles

    webcache_fault read_containers();

    std::unique_ptr<library> library_;
    std::vector<webcache_container> containers_;
    std::string library_text_;
};
