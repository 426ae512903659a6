#include "input/hv_portable_dir.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>

#include "cmdline/hv_cmd_params.h"
#include "support/run_ravel.h"

namespace {

// root/{a.dat, b.txt, noext, link -> d1, d1/{c.dat, d2/{e.dat, d3/f.dat}}, d4/g.dat}
struct tree {
    testsupport::temp_dir dir;
    std::string root = dir.path() + "/";
    tree() {
        for (const char* f : {"a.dat", "b.txt", "noext", "d1/c.dat", "d1/d2/e.dat", "d1/d2/d3/f.dat", "d4/g.dat"})
            testsupport::write_file(root + f, f);
        symlink((root + "d1").c_str(), (root + "link").c_str());
    }
    std::vector<std::string> list(const std::string& path, const std::string& wildcard) const {
        std::vector<hvportdir::subdir_node> nodes;
        hvportdir::enumerate_folder(path, wildcard, nodes);
        std::vector<std::string> out;
        for (const auto& n : nodes) out.push_back(n.path.substr(root.size()) + (n.is_dir ? "" : "=" + n.name));
        std::sort(out.begin(), out.end());
        return out;
    }
};

TEST(DirectoryWalker, ListsFoldersWithWildcardsAndWholeWordPatterns) {
    tree t;
    using list = std::vector<std::string>;
    EXPECT_EQ(t.list(t.dir.path(), ""), (list{"a.dat=a.dat", "b.txt=b.txt", "d1/", "d4/", "link=link", "noext=noext"}));
    EXPECT_EQ(t.list(t.root, "*.DAT"), (list{"a.dat=a.dat", "d1/", "d4/"}));
    EXPECT_EQ(t.list(t.root, "*.da"), (list{"d1/", "d4/"}));  // no partial forms
    EXPECT_EQ(t.list(t.root, "noext"), (list{"d1/", "d4/", "noext=noext"}));
    EXPECT_EQ(t.list(t.root + "*/", "*.dat"), (list{"d1/c.dat=c.dat", "d1/d2/", "d4/g.dat=g.dat"}));
    EXPECT_EQ(t.list(t.root + "*/*/", "*.*"), (list{"d1/d2/d3/", "d1/d2/e.dat=e.dat"}));
    EXPECT_EQ(t.list(t.root + "none/*/x", "*.*"), list{});

    std::vector<hvportdir::subdir_node> nodes;
    ASSERT_TRUE(hvportdir::list_folder(t.root, nodes, 3, true, false));  // folders only, '\' separator
    ASSERT_EQ(nodes.size(), 2u);
    EXPECT_EQ(nodes[0].path.back(), '\\');
    EXPECT_EQ(nodes[0].level, 4);
}

// A folder's files from the last listed to the first, then its subfolders likewise, each in full.
void expected_walk(const std::string& folder, uint32_t level, uint32_t levels, std::vector<std::string>& out) {
    std::vector<hvportdir::subdir_node> nodes;
    hvportdir::list_folder(folder, nodes, 0, false, true);
    for (auto it = nodes.rbegin(); it != nodes.rend(); ++it)
        if (!it->is_dir) out.push_back(it->path);
    for (auto it = nodes.rbegin(); it != nodes.rend(); ++it)
        if (it->is_dir && level < levels) expected_walk(it->path, level + 1, levels, out);
}

TEST(InputStream, WalksDepthFirstDownToMaxLevel) {
    tree t;
    for (uint32_t levels : {0u, 1u, 2u, 3u}) {
        std::vector<std::string> want, got;
        expected_walk(t.root, 0, levels, want);
        hvportdir::stdin_stream_ex stream(nullptr);
        ASSERT_TRUE(stream.init_to_enumdir(t.dir.path(), levels, {}));
        for (std::string name; stream.read(name, true);) got.push_back(name);
        EXPECT_EQ(got, want) << "levels " << levels;
        EXPECT_EQ(got.size(), std::vector<size_t>({4, 6, 7, 8})[levels]);
    }
}

TEST(InputStream, InitClearsParamsAndRewritesDevicePaths) {
    cmd_params params;
    hvportdir::stdin_stream_ex stream(&params);
    EXPECT_EQ(stream.get_params(), &params);
    EXPECT_TRUE(stream.init_to_stdin(false));
    EXPECT_EQ(stream.get_params(), nullptr);  // so a walk never applies the time window
    EXPECT_FALSE(stream.init_to_enumdir(std::string(), 1, {}));

    const std::wstring tail(50, L'x');
    const std::wstring shadow = L"\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy3\\x";
    const std::pair<std::wstring, std::wstring> rows[] = {
        {L"\\\\?\\C:\\" + tail, L"C:\\" + tail}, {shadow, shadow},
        {L"\\\\?\\C:\\short", L""},  // 46 characters or fewer
        {L"\\\\ab", L"\\\\ab"},       {L"/plain/path", L"/plain/path"}};
    for (const auto& r : rows) {
        std::wstring path = r.first;
        EXPECT_TRUE(stream.fixup_directory_or_file(path, true));
        EXPECT_EQ(path, r.second);
    }
}

}  // namespace
