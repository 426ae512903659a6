#include "webcache/hv_webcache.h"

#include <cstring>
#include <set>
#include <utility>

#include "foundation/hv_bytes.h"

#ifdef RAVEL_HAVE_ESEDB
#include <dlfcn.h>
#ifdef RAVEL_HAVE_BFIO
#include <libbfio.h>
#define LIBESEDB_HAVE_BFIO
#endif
#include <libesedb.h>
#endif

namespace {

constexpr size_t secure_directory_size = 8;  // the cache folder names are 8 characters each
// A value larger than this is left empty: no column of the cache holds so much, and a damaged
// database may claim any size.
constexpr size_t value_size_limit = size_t{4} << 20;
// Containers past this many are not read: a damaged Containers table may hold any number.
constexpr size_t container_limit = 65536;

}  // namespace

std::string webcache_container::secure_directory(uint64_t number) const {
    if (number == 0 || number > secure_directories.size()) return std::string();
    return secure_directories[static_cast<size_t>(number - 1)];
}

void webcache_record::clear() {
    container = nullptr;
    leak = false;
    entry_id = 0;
    secure_directory = ~uint64_t(0);
    file_size = 0;
    type = flags = access_count = sync_count = exemption_delta = 0;
    sync_time = creation_time = expiry_time = modified_time = accessed_time = post_check_time = 0;
    url.clear();
    file_name.clear();
    request_headers.clear();
    response_headers.clear();
    redirect_url.clear();
}

#ifdef RAVEL_HAVE_ESEDB

namespace {

// libesedb and libewf each carry, and export, their own copies of the libyal helper libraries (libbfio,
// libfdata, libfvalue, libcerror, ...), of other versions. Linked into one program, one library's calls
// would bind to the other's copies. So libesedb is loaded into a link-map namespace of its own, where
// it and its libbfio see only each other, and called through the functions taken from it.
#define RAVEL_ESEDB_FUNCTIONS(X) \
    X(libesedb_error_backtrace_sprint) \
    X(libesedb_column_free) \
    X(libesedb_column_get_utf8_name) \
    X(libesedb_column_get_utf8_name_size) \
    X(libesedb_error_free) \
    X(libesedb_file_close) \
    X(libesedb_file_free) \
    X(libesedb_file_get_table_by_utf8_name) \
    X(libesedb_file_initialize) \
    X(libesedb_file_open) \
    X(libesedb_long_value_free) \
    X(libesedb_long_value_get_data) \
    X(libesedb_long_value_get_data_size) \
    X(libesedb_long_value_get_utf8_string) \
    X(libesedb_long_value_get_utf8_string_size) \
    X(libesedb_record_free) \
    X(libesedb_record_get_long_value) \
    X(libesedb_record_get_value_binary_data) \
    X(libesedb_record_get_value_binary_data_size) \
    X(libesedb_record_get_value_data) \
    X(libesedb_record_get_value_data_size) \
    X(libesedb_record_get_value_utf8_string) \
    X(libesedb_record_get_value_utf8_string_size) \
    X(libesedb_record_is_long_value) \
    X(libesedb_table_free) \
    X(libesedb_table_get_column) \
    X(libesedb_table_get_number_of_columns) \
    X(libesedb_table_get_number_of_records) \
    X(libesedb_table_get_record)

#ifdef RAVEL_HAVE_BFIO
#define RAVEL_BFIO_FUNCTIONS(X) \
    X(libbfio_error_free) \
    X(libbfio_handle_free) \
    X(libbfio_memory_range_initialize) \
    X(libbfio_memory_range_set) \
    X(libesedb_file_open_file_io_handle)
#else
#define RAVEL_BFIO_FUNCTIONS(X)
#endif

struct esedb_api {
#define RAVEL_MEMBER(name) decltype(&::name) name = nullptr;
    RAVEL_ESEDB_FUNCTIONS(RAVEL_MEMBER)
    RAVEL_BFIO_FUNCTIONS(RAVEL_MEMBER)
#undef RAVEL_MEMBER
    bool loaded = false;
    bool memory = false;  // the libbfio functions were found too

    esedb_api() {
        // Never unloaded: a namespace is a scarce thing (glibc has 16), and one serves the whole run.
        void* library = dlmopen(LM_ID_NEWLM, RAVEL_ESEDB_SONAME, RTLD_NOW | RTLD_LOCAL);
        if (library == nullptr) return;
        bool all = true;
#define RAVEL_TAKE(name) all = (name = reinterpret_cast<decltype(name)>(dlsym(library, #name))) != nullptr && all;
        RAVEL_ESEDB_FUNCTIONS(RAVEL_TAKE)
        loaded = all;
        RAVEL_BFIO_FUNCTIONS(RAVEL_TAKE)
#undef RAVEL_TAKE
        memory = all;
    }
};

const esedb_api& api() {
    static const esedb_api loaded;
    return loaded;
}

// Every call takes an error. libesedb adds to an error it is handed, so each call gets a fresh one:
// taking the address frees what the last call left.
struct esedb_error {
    libesedb_error_t* error = nullptr;
    ~esedb_error() { reset(); }
    libesedb_error_t** operator&() {
        reset();
        return &error;
    }
    // The library's own account of the last failure, its lines joined by "; ", for the -diags log.
    std::string text() const {
        char buffer[4096] = {};
        if (error == nullptr || api().libesedb_error_backtrace_sprint(error, buffer, sizeof buffer) < 0) return "";
        std::string out(buffer, strnlen(buffer, sizeof buffer));
        while (!out.empty() && (out.back() == '\n' || out.back() == '\r')) out.pop_back();
        for (size_t at; (at = out.find('\n')) != std::string::npos;) out.replace(at, 1, "; ");
        return out;
    }
    void reset() {
        if (error != nullptr) api().libesedb_error_free(&error);
        error = nullptr;
    }
};

struct table_handle {
    libesedb_table_t* table = nullptr;
    ~table_handle() {
        esedb_error error;
        if (table != nullptr) api().libesedb_table_free(&table, &error);
    }
};

struct record_handle {
    libesedb_record_t* record = nullptr;
    ~record_handle() { reset(); }
    void reset() {
        esedb_error error;
        if (record != nullptr) api().libesedb_record_free(&record, &error);
        record = nullptr;
    }
};

struct long_value_handle {
    libesedb_long_value_t* value = nullptr;
    ~long_value_handle() {
        esedb_error error;
        if (value != nullptr) api().libesedb_long_value_free(&value, &error);
    }
};

// A table's columns by name: their value entries in each record.
class table_columns {
public:
    bool read(libesedb_table_t* table) {
        esedb_error error;
        int count = 0;
        if (api().libesedb_table_get_number_of_columns(table, &count, 0, &error) != 1 || count < 0) return false;
        names_.assign(static_cast<size_t>(count), std::string());
        for (int i = 0; i < count; ++i) {
            libesedb_column_t* column = nullptr;
            if (api().libesedb_table_get_column(table, i, &column, 0, &error) != 1) continue;
            size_t size = 0;
            if (api().libesedb_column_get_utf8_name_size(column, &size, &error) == 1 && size > 1 && size <= 256) {
                std::string name(size, '\0');
                if (api().libesedb_column_get_utf8_name(column, reinterpret_cast<uint8_t*>(&name[0]), size, &error) == 1) {
                    name.resize(std::strlen(name.c_str()));
                    names_[static_cast<size_t>(i)] = name;
                }
            }
            api().libesedb_column_free(&column, &error);
        }
        return true;
    }
    // -1 when the table has no such column.
    int entry(const char* name) const {
        for (size_t i = 0; i < names_.size(); ++i)
            if (names_[i] == name) return static_cast<int>(i);
        return -1;
    }

private:
    std::vector<std::string> names_;
};

// A fixed-size integer column, little-endian as stored; 0 when it is empty or of no integer size.
uint64_t number_value(libesedb_record_t* record, int entry) {
    if (entry < 0) return 0;
    esedb_error error;
    size_t size = 0;
    uint8_t bytes[8] = {};
    if (api().libesedb_record_get_value_data_size(record, entry, &size, &error) != 1) return 0;
    if (size != 1 && size != 2 && size != 4 && size != 8) return 0;
    if (api().libesedb_record_get_value_data(record, entry, bytes, size, &error) != 1) return 0;
    return hv::le64(bytes, sizeof bytes, 0);
}

// A text column as UTF-8 (the library converts from the column's codepage or UTF-16), or the bytes of
// a binary one; "" when it is empty or can't be read.
void value_text(libesedb_record_t* record, int entry, bool binary, std::string& out) {
    out.clear();
    if (entry < 0) return;
    esedb_error error;
    size_t size = 0;
    auto fill = [&out, &size](auto read) {
        if (size == 0 || size > value_size_limit) return;
        out.resize(size);
        if (read(reinterpret_cast<uint8_t*>(&out[0]), size) != 1) out.clear();
    };
    if (api().libesedb_record_is_long_value(record, entry, &error) == 1) {
        long_value_handle value;
        if (api().libesedb_record_get_long_value(record, entry, &value.value, &error) != 1) return;
        if (binary) {
            size64_t size64 = 0;
            if (api().libesedb_long_value_get_data_size(value.value, &size64, &error) != 1 || size64 > value_size_limit) return;
            size = static_cast<size_t>(size64);
            fill([&](uint8_t* p, size_t n) { return api().libesedb_long_value_get_data(value.value, p, n, &error); });
        } else {
            if (api().libesedb_long_value_get_utf8_string_size(value.value, &size, &error) != 1) return;
            fill([&](uint8_t* p, size_t n) { return api().libesedb_long_value_get_utf8_string(value.value, p, n, &error); });
        }
    } else if (binary) {
        if (api().libesedb_record_get_value_binary_data_size(record, entry, &size, &error) != 1) return;
        fill([&](uint8_t* p, size_t n) { return api().libesedb_record_get_value_binary_data(record, entry, p, n, &error); });
    } else {
        if (api().libesedb_record_get_value_utf8_string_size(record, entry, &size, &error) != 1) return;
        fill([&](uint8_t* p, size_t n) { return api().libesedb_record_get_value_utf8_string(record, entry, p, n, &error); });
    }
    // A UTF-8 answer ends with its NUL.
    if (!binary) out.resize(std::strlen(out.c_str()));
}

std::string text_of(libesedb_record_t* record, int entry) {
    std::string text;
    value_text(record, entry, false, text);
    return text;
}

}  // namespace

struct webcache_database::library {
    libesedb_file_t* file = nullptr;
#ifdef RAVEL_HAVE_BFIO
    libbfio_handle_t* memory = nullptr;
    std::vector<uint8_t> bytes;  // the memory range reads from a copy: libbfio takes no const bytes
#endif

    ~library() {
        esedb_error error;
        if (file != nullptr) {
            api().libesedb_file_close(file, &error);
            api().libesedb_file_free(&file, &error);
        }
#ifdef RAVEL_HAVE_BFIO
        libbfio_error_t* bfio_error = nullptr;
        if (memory != nullptr) api().libbfio_handle_free(&memory, &bfio_error);
        if (bfio_error != nullptr) api().libbfio_error_free(&bfio_error);
#endif
    }
};

webcache_database::webcache_database() = default;
webcache_database::~webcache_database() = default;

bool webcache_database::offered() { return api().loaded; }

void webcache_database::close() {
    library_.reset();
    containers_.clear();
    library_text_.clear();
}

webcache_fault webcache_database::open(const std::string& path) {
    close();
    if (!api().loaded) return webcache_fault::not_offered;
    library_.reset(new library);
    esedb_error error;
    if (api().libesedb_file_initialize(&library_->file, &error) != 1) return webcache_fault::refused;
    if (api().libesedb_file_open(library_->file, path.c_str(), LIBESEDB_OPEN_READ, &error) != 1) {
        library_text_ = error.text();
        api().libesedb_file_free(&library_->file, &error);
        return webcache_fault::refused;
    }
    return read_containers();
}

webcache_fault webcache_database::open_memory(const uint8_t* bytes, size_t size) {
    close();
#ifdef RAVEL_HAVE_BFIO
    if (!api().memory) return webcache_fault::not_offered;
    library_.reset(new library);
    library_->bytes.assign(bytes, bytes + size);
    libbfio_error_t* bfio_error = nullptr;
    uint8_t* start = library_->bytes.empty() ? nullptr : library_->bytes.data();
    if (start == nullptr || api().libbfio_memory_range_initialize(&library_->memory, &bfio_error) != 1 ||
        api().libbfio_memory_range_set(library_->memory, start, size, &bfio_error) != 1) {
        if (bfio_error != nullptr) api().libbfio_error_free(&bfio_error);
        return webcache_fault::refused;
    }
    esedb_error error;
    if (api().libesedb_file_initialize(&library_->file, &error) != 1) return webcache_fault::refused;
    if (api().libesedb_file_open_file_io_handle(library_->file, library_->memory, LIBESEDB_OPEN_READ, &error) != 1) {
        library_text_ = error.text();
        api().libesedb_file_free(&library_->file, &error);
        return webcache_fault::refused;
    }
    return read_containers();
#else
    (void)bytes;
    (void)size;
    return webcache_fault::not_offered;
#endif
}

webcache_fault webcache_database::read_containers() {
    esedb_error error;
    table_handle table;
    static const char containers[] = "Containers";
    if (api().libesedb_file_get_table_by_utf8_name(library_->file, reinterpret_cast<const uint8_t*>(containers),
                                                   sizeof containers - 1, &table.table, &error) != 1) {
        library_text_ = error.error != nullptr ? error.text() : "no table named Containers";
        return webcache_fault::refused;
    }
    table_columns columns;
    int count = 0;
    if (!columns.read(table.table) || api().libesedb_table_get_number_of_records(table.table, &count, &error) != 1) {
        library_text_ = error.text();
        return webcache_fault::refused;
    }
    const int id = columns.entry("ContainerId"), name = columns.entry("Name"), directory = columns.entry("Directory"),
              partition = columns.entry("PartitionId"), secure = columns.entry("SecureDirectories");
    for (int i = 0; i < count && containers_.size() < container_limit; ++i) {
        record_handle record;
        if (api().libesedb_table_get_record(table.table, i, &record.record, &error) != 1) continue;
        webcache_container container;
        container.id = number_value(record.record, id);
        container.name = text_of(record.record, name);
        container.directory = text_of(record.record, directory);
        container.partition_id = text_of(record.record, partition);
        const std::string names = text_of(record.record, secure);
        for (size_t at = 0; at + secure_directory_size <= names.size(); at += secure_directory_size)
            container.secure_directories.push_back(names.substr(at, secure_directory_size));
        containers_.push_back(std::move(container));
    }
    return webcache_fault::none;
}

namespace {

// The records of one table through `read`, which fills a record from a library record. False when the
// sink stopped the walk.
template <class Read>
bool walk_table(libesedb_file_t* file, const std::string& name, webcache_sink& sink, Read read) {
    esedb_error error;
    table_handle table;
    if (api().libesedb_file_get_table_by_utf8_name(file, reinterpret_cast<const uint8_t*>(name.data()), name.size(),
                                                   &table.table, &error) != 1)
        return true;  // not there: a container without records
    table_columns columns;
    int count = 0;
    if (!columns.read(table.table) || api().libesedb_table_get_number_of_records(table.table, &count, &error) != 1 ||
        count < 0) {
        sink.table_unreadable(name, 0, error.text());
        return true;
    }
    webcache_record out;
    uint64_t missing = 0;
    std::string first_failure;
    for (int i = 0; i < count; ++i) {
        record_handle record;
        if (api().libesedb_table_get_record(table.table, i, &record.record, &error) != 1) {
            if (missing++ == 0) first_failure = error.text();
            continue;
        }
        out.clear();
        read(record.record, columns, out);
        if (!sink.record(out)) return false;
    }
    if (missing != 0) sink.table_unreadable(name, missing, first_failure);
    return true;
}

}  // namespace

bool webcache_database::walk(webcache_sink& sink) {
    if (!library_ || library_->file == nullptr) return true;
    // A damaged Containers table may name one table many times: each is walked once.
    std::set<uint64_t> walked;
    for (const webcache_container& container : containers_) {
        if (!walked.insert(container.id).second) continue;
        const bool going = walk_table(library_->file, "Container_" + std::to_string(container.id), sink,
                                      [&container](libesedb_record_t* r, const table_columns& c, webcache_record& out) {
            out.container = &container;
            out.entry_id = number_value(r, c.entry("EntryId"));
            const int secure = c.entry("SecureDirectory");
            if (secure >= 0) out.secure_directory = number_value(r, secure);
            out.file_size = number_value(r, c.entry("FileSize"));
            out.type = static_cast<uint32_t>(number_value(r, c.entry("Type")));
            out.flags = static_cast<uint32_t>(number_value(r, c.entry("Flags")));
            out.access_count = static_cast<uint32_t>(number_value(r, c.entry("AccessCount")));
            out.sync_count = static_cast<uint32_t>(number_value(r, c.entry("SyncCount")));
            out.exemption_delta = static_cast<uint32_t>(number_value(r, c.entry("ExemptionDelta")));
            out.sync_time = number_value(r, c.entry("SyncTime"));
            out.creation_time = number_value(r, c.entry("CreationTime"));
            out.expiry_time = number_value(r, c.entry("ExpiryTime"));
            out.modified_time = number_value(r, c.entry("ModifiedTime"));
            out.accessed_time = number_value(r, c.entry("AccessedTime"));
            out.post_check_time = number_value(r, c.entry("PostCheckTime"));
            value_text(r, c.entry("Url"), false, out.url);
            value_text(r, c.entry("Filename"), false, out.file_name);
            value_text(r, c.entry("RequestHeaders"), true, out.request_headers);
            value_text(r, c.entry("ResponseHeaders"), true, out.response_headers);
            value_text(r, c.entry("RedirectUrl"), false, out.redirect_url);
        });
        if (!going) return false;
    }
    return walk_table(library_->file, "LeakFiles", sink,
                      [](libesedb_record_t* r, const table_columns& c, webcache_record& out) {
        out.leak = true;
        out.entry_id = number_value(r, c.entry("LeakId"));
        out.creation_time = number_value(r, c.entry("CreationTime"));
        value_text(r, c.entry("Filename"), false, out.file_name);
    });
}

#else  // built without libesedb: nothing opens

struct webcache_database::library {};

webcache_database::webcache_database() = default;
webcache_database::~webcache_database() = default;
bool webcache_database::offered() { return false; }
void webcache_database::close() { containers_.clear(); }
webcache_fault webcache_database::open(const std::string&) { return webcache_fault::not_offered; }
webcache_fault webcache_database::open_memory(const uint8_t*, size_t) { return webcache_fault::not_offered; }
webcache_fault webcache_database::read_containers() { return webcache_fault::not_offered; }
bool webcache_database::walk(webcache_sink&) { return true; }

#endif
