#include "input/hv_portable_dir.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>

#include "support/run_ravel.h"

// The walk's order and depth are pinned end to end, over a whole case folder.
namespace {

TEST(DirectoryWalker, ListsFoldersWithWildcardsAndWholeWordPatterns) {
    testsupport::temp_dir dir;  // root/{a.dat, b.txt, noext, link -> d1, d1/{c.dat, d2/{e.dat, d3/f.dat}}, d4/g.dat}
    const std::string root = dir.path() + "/";
    for (const char* f : {"a.dat", "b.txt", "noext", "d1/c.dat", "d1/d2/e.dat", "d1/d2/d3/f.dat", "d4/g.dat"})
        testsupport::write_file(root + f, f);
    symlink((root + "d1").c_str(), (root + "link").c_str());
    using list = std::vector<std::string>;
    auto listed = [&](const std::string& path, const std::string& wildcard) {  // sorted, relative to root
        std::vector<hvportdir::subdir_node> nodes;
        hvportdir::enumerate_folder(path, wildcard, nodes);
        list out;
        for (const auto& n : nodes) out.push_back(n.path.substr(root.size()) + (n.is_dir ? "" : "=" + n.name));
        std::sort(out.begin(), out.end());
        return out;
    };
    EXPECT_EQ(listed(dir.path(), ""), (list{"a.dat=a.dat", "b.txt=b.txt", "d1/", "d4/", "link=link", "noext=noext"}));
    EXPECT_EQ(listed(root, "*.DAT"), (list{"a.dat=a.dat", "d1/", "d4/"}));
    EXPECT_EQ(listed(root, "*.da"), (list{"d1/", "d4/"}));  // no partial forms
    EXPECT_EQ(listed(root, "noext"), (list{"d1/", "d4/", "noext=noext"}));
    EXPECT_EQ(listed(root + "*/", "*.dat"), (list{"d1/c.dat=c.dat", "d1/d2/", "d4/g.dat=g.dat"}));
    EXPECT_EQ(listed(root + "*/*/", "*.*"), (list{"d1/d2/d3/", "d1/d2/e.dat=e.dat"}));
    EXPECT_EQ(listed(root + "none/*/x", "*.*"), list{});

    std::vector<hvportdir::subdir_node> nodes;
    ASSERT_TRUE(hvportdir::list_folder(root, nodes, 3, true, false));  // folders only, '\' separator
    ASSERT_EQ(nodes.size(), 2u);
    EXPECT_EQ(nodes[0].path.back(), '\\');
    EXPECT_EQ(nodes[0].level, 4);
}

TEST(InputStream, InitClearsTheWindowAndRewritesDevicePaths) {
    const time_window window;
    hvportdir::stdin_stream_ex stream(&window);
    EXPECT_EQ(stream.get_window(), &window);
    EXPECT_TRUE(stream.init_to_stdin(false));
    EXPECT_EQ(stream.get_window(), nullptr);  // so a walk never applies the time window

    const std::wstring tail(50, L'x');
    const std::wstring shadow = L"\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy3\\x";
    const std::pair<std::wstring, std::wstring> rows[] = {
        {L"\\\\?\\C:\\" + tail, L"C:\\" + tail}, {shadow, shadow}, {L"\\\\ab", L"\\\\ab"},
        {L"\\\\?\\C:\\short", L""}, {L"/plain/path", L"/plain/path"}};  // 46 characters or fewer: empty
    for (const auto& r : rows) {
        std::wstring path = r.first;
        EXPECT_TRUE(stream.fixup_directory_or_file(path, true));
        EXPECT_EQ(path, r.second);
    }
}

}  // namespace
