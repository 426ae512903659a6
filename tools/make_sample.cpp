// make_sample OUTPUT_PATH: writes a small but realistic browser-cache container for the quick
// start: cached pages and images of two users with their HTTP headers, a visited-page record,
// a deleted (LEAK) entry, a redirect (REDR), and one entry that the HASH table no longer names.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include "support/builder.h"

using namespace testsupport;

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: make_sample OUTPUT_PATH\n");
        return 2;
    }
    byte_image image(0x8000);
    const uint32_t hash_at = 0x4000;
    write_container_header(image, {"Q7X2M4LA", "B9TC0RW1", "KD3V8NEP", "Z0HF5UYS"}, hash_at);
    image.u32(28, 0x8000);  // the header's own file size field

    url_entry page;
    page.url = "http://www.example.com/";
    page.file_name = "index[1].htm";
    page.directory_index = 0;
    page.file_size = 5120;
    page.count = 4;
    page.last_modified = filetime_of(2015, 2, 27, 16, 4, 11);
    page.last_access = filetime_of(2015, 3, 2, 8, 30, 0, 250);
    page.expires_date = dos_date_of(2015, 3, 9);
    page.expires_time = dos_time_of(8, 30, 0);
    page.last_sync_date = dos_date_of(2015, 3, 2);
    page.last_sync_time = dos_time_of(8, 30, 2);
    page.data = "HTTP/1.1 200 OK\r\nContent-Type: text/html; charset=utf-8\r\nETag: \"5d8c72a5\"\r\n"
                "Content-Length: 5120\r\n\r\n~U:alice\r\n";

    url_entry logo = page;
    logo.url = "http://www.example.com/images/logo.png";
    logo.file_name = "logo[1].png";
    logo.directory_index = 1;
    logo.file_size = 2311;
    logo.count = 1;
    logo.last_modified = filetime_of(2014, 11, 20, 10, 0, 0);
    logo.data = "HTTP/1.1 200 OK\r\nContent-Type: image/png\r\nCache-Control: max-age=604800\r\n\r\n~U:alice\r\n";

    url_entry visited;
    visited.url = "Visited: alice@http://www.example.org/search?q=index.dat,parser";
    visited.count = 2;
    visited.last_modified = filetime_of(2015, 3, 2, 8, 31, 5);
    visited.last_access = visited.last_modified;
    visited.last_sync_date = dos_date_of(2015, 3, 2);
    visited.last_sync_time = dos_time_of(8, 31, 6);
    visited.directory_index = 0xFF;  // history records live in no cache folder
    visited.data = std::string("\x10\0\x02\0\0\0\0\0", 8);  // binary, as the browser keeps it: no header

    url_entry sheet = page;
    sheet.url = "https://static.example.net/css/site.css?v=3";
    sheet.file_name = "site[1].css";
    sheet.directory_index = 2;
    sheet.file_size = 18432;
    sheet.count = 7;
    sheet.last_access = filetime_of(2015, 3, 3, 19, 12, 44, 918);
    sheet.data = "HTTP/1.1 200 OK\r\nContent-Type: text/css\r\nVary: Accept-Encoding\r\n\r\n~U:bob\r\n";

    url_entry deleted;  // freed by the browser: a LEAK keeps its file name and a DOS access stamp
    deleted.signature = "LEAK";
    deleted.url = "http://ads.example.com/banner.gif";
    deleted.file_name = "banner[2].gif";
    deleted.directory_index = 3;
    deleted.file_size = 43;
    deleted.last_modified = filetime_of(2015, 1, 15, 12, 0, 0);
    deleted.second_date = dos_date_of(2015, 3, 1);
    deleted.second_time = dos_time_of(22, 15, 30);

    url_entry unnamed = page;  // no HASH slot points at it any more; the scan finds it all the same
    unnamed.url = "http://www.example.com/scripts/app.js";
    unnamed.file_name = "app[1].js";
    unnamed.directory_index = 3;
    unnamed.file_size = 90211;
    unnamed.count = 2;
    unnamed.data = "HTTP/1.1 200 OK\r\nContent-Type: application/javascript\r\n\r\n~U:bob\r\n";

    size_t at = 0x5000;
    std::vector<std::pair<uint32_t, uint32_t>> slots;
    auto add = [&](const url_entry& e, bool named) {
        if (named) slots.push_back({0x4A3B2C10u + static_cast<uint32_t>(slots.size()) * 0x1F0u, uint32_t(at)});
        at += write_url_entry(image, at, e);
    };
    add(page, true);
    add(logo, true);
    add(visited, true);
    slots.push_back({0x0C7E5100u, uint32_t(at)});
    at += write_redr_entry(image, at, "http://example.com/");
    add(sheet, true);
    add(deleted, true);
    add(unnamed, false);
    write_hash_block(image, hash_at, slots, 0, 32);

    std::filesystem::path out = argv[1];
    std::error_code ignored;
    if (out.has_parent_path()) std::filesystem::create_directories(out.parent_path(), ignored);
    std::ofstream file(out, std::ios::binary | std::ios::trunc);
    file.write(image.bytes().data(), static_cast<std::streamsize>(image.size()));
    if (!file.good()) {
        std::fprintf(stderr, "make_sample: can't write %s\n", argv[1]);
        return 1;
    }
    return 0;
}
