#include "webcache/hv_webcache.h"

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "support/needs.h"
#include "support/run_ravel.h"

using namespace testsupport;

namespace {

// What the walk gave: records per table (LeakFiles apart) and the tables it couldn't read.
struct counting_sink : webcache_sink {
    std::map<std::string, size_t> records;
    std::vector<std::string> unreadable;
    bool record(const webcache_record& record) override {
        ++records[record.container != nullptr ? record.container->name + " " + std::to_string(record.container->id)
                                              : std::string("LeakFiles")];
        return true;
    }
    void table_unreadable(const std::string& table, uint64_t missing, const std::string& library_text) override {
        unreadable.push_back(table + (missing != 0 ? " " + std::to_string(missing) : ""));
        EXPECT_NE(library_text.find("unable to"), std::string::npos) << library_text;
    }
};

}  // namespace

// The sample opened from memory: its 19 containers, its LeakFiles records, the two tables the library
// can't read.
TEST(Webcache, SampleFromMemory) {
    RAVEL_NEEDS(webcache_database::offered() ? "" : "ravel built without libesedb (Debian package libesedb-dev)");
    RAVEL_NEEDS(missing_real_fixtures());
    const std::string bytes = read_file(real_fixtures_dir() + "/WebCache/WebCacheV01.dat");
    webcache_database database;
    ASSERT_EQ(database.open_memory(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()), webcache_fault::none);
    ASSERT_EQ(database.containers().size(), 19u);
    const webcache_container& content = database.containers()[0];
    EXPECT_EQ(content.name, "Content");
    EXPECT_EQ(content.directory, "C:\\Users\\Administrator\\AppData\\Local\\Microsoft\\Windows\\INetCache\\IE\\");
    EXPECT_EQ(content.secure_directories, (std::vector<std::string>{"0KLPAC95", "EIRRDZXC", "L9HRTYNO", "9XWKH8VJ"}));
    EXPECT_EQ(content.secure_directory(1), "0KLPAC95");
    EXPECT_EQ(content.secure_directory(0), "");
    EXPECT_EQ(content.secure_directory(5), "");

    counting_sink sink;
    EXPECT_TRUE(database.walk(sink));  // the containers' records are counted against the library's export end to end
    EXPECT_EQ(sink.records["LeakFiles"], 2u);
    EXPECT_EQ(sink.unreadable, (std::vector<std::string>{"Container_4", "Container_11"}));
}

// Bytes that are no database, or too few of one, are refused whole.
TEST(Webcache, RefusesWhatIsNoDatabase) {
    RAVEL_NEEDS(webcache_database::offered() ? "" : "ravel built without libesedb (Debian package libesedb-dev)");
    const std::vector<uint8_t> garbage(65536, 0x41);
    webcache_database database;
    EXPECT_EQ(database.open_memory(garbage.data(), garbage.size()), webcache_fault::refused);
    EXPECT_NE(database.library_text().find("libesedb"), std::string::npos) << database.library_text();
    EXPECT_EQ(database.open_memory(garbage.data(), 0), webcache_fault::refused);
    counting_sink sink;
    EXPECT_TRUE(database.walk(sink));
    EXPECT_TRUE(sink.records.empty());
}
