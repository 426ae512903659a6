// The list roads seen from outside: a whole case folder through -enumdir at several depths and
// through a -pipe list, with filters.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>

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

// A list run over `names` must print what -f prints for each, in that order, with the header row
// once and a message per failed file, and end with 0.
void expect_run(const run_result& got, const std::vector<std::string>& names) {
    std::string out, err;
    for (const std::string& name : names) {
        run_result one = run_ravel({"-quiet", "-f", name});
        std::string report = after_preamble(one.out);
        const size_t header = report.find("last mod date,");
        if (header != std::string::npos && out.find("last mod date,") != std::string::npos)
            report.erase(header, report.find('\n', header) + 1 - header);
        out += report;
        err += one.err;
    }
    EXPECT_EQ(after_preamble(got.out), out);
    EXPECT_EQ(got.err, err);
    EXPECT_EQ(got.status, 0);
}

}  // namespace

TEST(InputE2E, EnumdirWalksTheCaseFolderToEachDepth) {
    case_folder c;
    const size_t files_by_depth[] = {5, 8, 11, 11};  // the link is a file, never entered
    for (uint32_t depth : {0u, 1u, 2u, 9u}) {
        std::vector<std::string> order;
        walk_order(c.root + "/", 0, depth, order);
        EXPECT_EQ(order.size(), files_by_depth[std::min(depth, 3u)]);
        expect_run(run_ravel({"-quiet", "-enumdir", c.root, "-num_subdirs", std::to_string(depth)}), order);
        if (depth == 0) expect_run(run_ravel({"-quiet", "-enumdir", c.root}), order);  // no -num_subdirs
    }
    run_result empty = run_ravel({"-quiet", "-enumdir", ""});  // no folder: nothing, quietly
    EXPECT_EQ(after_preamble(empty.out) + empty.err, "");
    EXPECT_EQ(empty.status, 0);
}

TEST(InputE2E, PipeTakesEachLineAsItStands) {
    case_folder c;
    // A 4095-byte piece of a longer line is a name of its own ('/' repeated is one separator).
    const std::string tail = "/History/MSHist012015030220150303/index.dat";
    const std::string padded = c.root + std::string(4095 - c.root.size() - tail.size(), '/') + tail;
    const std::string input = c.root + "/index.dat\n\n" + c.root + "/History/index.dat\r\n " + c.root +
                              "/Cookies/index.dat\n" + c.root + "/it's \"q\" file.dat\n" + padded + c.root +
                              "/Temporary Internet Files/Content.IE5/index.dat\n" + c.root + "/notes.txt";
    expect_run(run_ravel({"-quiet", "-pipe"}, input),  // the empty line is skipped; blanks are kept: no such file
               {c.root + "/index.dat", c.root + "/History/index.dat", " " + c.root + "/Cookies/index.dat",
                c.root + "/it's \"q\" file.dat", padded, c.root + "/Temporary Internet Files/Content.IE5/index.dat",
                c.root + "/notes.txt"});
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
    auto run = [&](std::vector<std::string> args) {
        args.insert(args.begin(), {"-quiet", "-enumdir", c.root, "-num_subdirs", "9"});
        return run_ravel(args);
    };
    expect_run(run({"-filter", "INDEX.DAT|*.txt"}), only({"/index.dat", ".txt"}));
    expect_run(run({"-filter", "/content.ie5"}), only({"/Content.IE5/"}));
    // "URL " at 0x4000: the containers, whatever their names.
    expect_run(run({"-filter_sig", "55 52 4c 20|0x4000"}), only({"index.dat", "file.dat"}));
    // Every file is younger than the start bound: with a filter nothing passes, without one all do.
    expect_run(run({"-filter", "*", "-cmd_start_time", "2100-01-01"}), {});
    expect_run(run({"-cmd_start_time", "2100-01-01"}), all);
}
