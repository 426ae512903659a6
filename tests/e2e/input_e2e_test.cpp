// The list roads seen from outside: a whole case folder through -enumdir at several depths and
// through a -pipe list, with filters. A list run must print what -f prints for each name it takes,
// in the walk's order, with the header row once and a message per failed file, and end with 0.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <set>

#include "input/hv_portable_dir.h"
#include "support/builder.h"
#include "support/run_ravel.h"

using namespace testsupport;

namespace {

// A container with one entry whose URL names `tag`, so each row shows the file it came from.
std::string container(const std::string& tag) {
    byte_image image(0x5000);
    write_container_header(image, {"Q7X2M4LA"}, 0);
    url_entry entry;
    entry.url = "http://" + tag + ".example/";
    entry.file_name = tag + "[1].htm";
    entry.last_modified = filetime_of(2015, 2, 27, 16, 4, 11);
    entry.data = "HTTP/1.1 200 OK\r\n\r\n~U:alice\r\n";
    write_url_entry(image, 0x4000, entry);
    return image.bytes();
}

struct case_folder {
    temp_dir dir;
    std::string root = dir.path();
    case_folder() {
        write_file(root + "/index.dat", container("root"));
        write_file(root + "/notes.txt", "not a container\n");
        write_file(root + "/empty.dat", "");
        write_file(root + "/it's \"q\" file.dat", container("quoted"));
        write_file(root + "/History/index.dat", container("history"));
        write_file(root + "/History/MSHist012015030220150303/index.dat", container("mshist"));
        write_file(root + "/Temporary Internet Files/Content.IE5/index.dat", container("content"));
        write_file(root + "/Temporary Internet Files/Content.IE5/desktop.ini", "[.ShellClassInfo]\n");
        write_file(root + "/Cookies/index.dat", container("cookies"));
        write_file(root + "/Cookies/alice@example[1].txt", "id\n1\nexample.com/\n");
        symlink((root + "/History").c_str(), (root + "/link").c_str());  // walked as a file, never entered
    }
};

// The walk's order: a folder's files from the last listed to the first, then its subfolders likewise.
void walk_order(const std::string& folder, uint32_t level, uint32_t levels, std::vector<std::string>& out) {
    std::vector<hvportdir::subdir_node> nodes;
    hvportdir::list_folder(folder, nodes, 0, false, true);
    for (auto it = nodes.rbegin(); it != nodes.rend(); ++it)
        if (!it->is_dir) out.push_back(it->path);
    for (auto it = nodes.rbegin(); it != nodes.rend(); ++it)
        if (it->is_dir && level < levels) walk_order(it->path, level + 1, levels, out);
}

// What a list run over `names` must print: each name's -f report, the header row only once.
run_result expected_run(const std::vector<std::string>& names) {
    run_result want;
    want.status = 0;
    bool header_seen = false;
    for (const std::string& name : names) {
        run_result one = run_ravel({"-quiet", "-f", name});
        std::string report = after_preamble(one.out);
        size_t header = report.find("last mod date,");
        if (header != std::string::npos && header_seen) report.erase(header, report.find('\n', header) + 1 - header);
        header_seen |= header != std::string::npos;
        want.out += report;
        want.err += one.err;
    }
    return want;
}

// The tags of the URLs "http://<tag>.example/" in a report.
std::set<std::string> tags_in(const std::string& report) {
    std::set<std::string> tags;
    for (size_t at = report.find("http://"); at != std::string::npos; at = report.find("http://", at + 1)) {
        size_t end = report.find(".example/", at);
        if (end != std::string::npos) tags.insert(report.substr(at + 7, end - at - 7));
    }
    return tags;
}

void expect_run(const run_result& got, const run_result& want) {
    EXPECT_EQ(after_preamble(got.out), want.out);
    EXPECT_EQ(got.err, want.err);
    EXPECT_EQ(got.status, 0);
}

}  // namespace

TEST(InputE2E, EnumdirWalksTheCaseFolderToEachDepth) {
    case_folder c;
    const std::set<std::string> tags_by_depth[] = {
        {"root", "quoted"},
        {"root", "quoted", "history", "cookies"},
        {"root", "quoted", "history", "cookies", "mshist", "content"},
    };
    for (uint32_t depth : {0u, 1u, 2u, 9u}) {
        std::vector<std::string> order;
        walk_order(c.root + "/", 0, depth, order);
        run_result got = run_ravel({"-quiet", "-enumdir", c.root, "-num_subdirs", std::to_string(depth)});
        expect_run(got, expected_run(order));
        EXPECT_EQ(tags_in(got.out), tags_by_depth[std::min(depth, 2u)]) << "depth " << depth;
        EXPECT_NE(got.err.find("probs parsing file: " + c.root + "/notes.txt"), std::string::npos);
    }
    // No -num_subdirs: the root only. An empty folder value: nothing, quietly.
    EXPECT_EQ(tags_in(run_ravel({"-quiet", "-enumdir", c.root}).out), tags_by_depth[0]);
    run_result empty = run_ravel({"-quiet", "-enumdir", ""});
    EXPECT_EQ(after_preamble(empty.out) + empty.err, "");
    EXPECT_EQ(empty.status, 0);
}

TEST(InputE2E, PipeTakesEachLineAsItStands) {
    case_folder c;
    // A 4095-byte piece of a longer line is a name of its own: pad a path to exactly that length.
    const std::string tail = "History/MSHist012015030220150303/index.dat";
    std::string padded = c.root + "/";
    while (padded.size() + tail.size() < 4095) padded += padded.size() + tail.size() + 1 < 4095 ? "./" : "/";
    padded += tail;
    ASSERT_EQ(padded.size(), 4095u);

    const std::string input = c.root + "/index.dat\n\n" + c.root + "/History/index.dat\r\n " + c.root +
                              "/Cookies/index.dat\n" + c.root + "/it's \"q\" file.dat\n" + padded + c.root +
                              "/Temporary Internet Files/Content.IE5/index.dat\n" + c.root + "/notes.txt";
    const std::vector<std::string> names = {c.root + "/index.dat",
                                            c.root + "/History/index.dat",
                                            " " + c.root + "/Cookies/index.dat",  // blanks are kept: no such file
                                            c.root + "/it's \"q\" file.dat",
                                            padded,
                                            c.root + "/Temporary Internet Files/Content.IE5/index.dat",
                                            c.root + "/notes.txt"};
    run_result got = run_ravel({"-quiet", "-pipe"}, input);
    expect_run(got, expected_run(names));
    EXPECT_EQ(tags_in(got.out), (std::set<std::string>{"root", "history", "quoted", "mshist", "content"}));
}

TEST(InputE2E, FiltersChooseTheNamesAndTheWindowNeedsAFilter) {
    case_folder c;
    std::vector<std::string> all;
    walk_order(c.root + "/", 0, 9, all);
    auto only = [&](std::initializer_list<const char*> parts) {
        std::vector<std::string> kept;
        for (const std::string& p : all)
            if (std::any_of(parts.begin(), parts.end(), [&](const char* s) { return p.find(s) != p.npos; }))
                kept.push_back(p);
        return kept;
    };
    const std::vector<std::string> walk = {"-quiet", "-enumdir", c.root, "-num_subdirs", "9"};
    auto run = [&](std::vector<std::string> extra) {
        extra.insert(extra.begin(), walk.begin(), walk.end());
        return run_ravel(extra);
    };
    expect_run(run({"-filter", "INDEX.DAT|*.txt"}), expected_run(only({"/index.dat", ".txt"})));
    expect_run(run({"-filter", "/content.ie5"}), expected_run(only({"/Content.IE5/"})));
    // "URL " at 0x4000: the containers, whatever their names.
    expect_run(run({"-filter_sig", "55 52 4c 20|0x4000"}), expected_run(only({"index.dat", "file.dat"})));
    // Every file is younger than the start bound: with a filter nothing passes, without one all do.
    expect_run(run({"-filter", "*", "-cmd_start_time", "2100-01-01"}), expected_run({}));
    expect_run(run({"-cmd_start_time", "2100-01-01"}), expected_run(all));
}
