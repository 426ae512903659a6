// End to end: "ravel -f" on real containers and on inputs that aren't containers at all. The expected
// rows were read off the files' bytes.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <sstream>

#include "support/needs.h"
#include "support/run_ravel.h"

using namespace testsupport;

namespace {

// The rows as written below lack their last column, the source, which is the same on each.
std::string with_source(const std::string& rows, const std::string& source) {
    std::istringstream in(rows);
    std::string line, out;
    while (std::getline(in, line))
        if (!line.empty()) out += line + "," + source + "\n";
    return out;
}

// The real containers' folder names are part of what is read (they set the cache kind), so the
// run starts in the fixtures folder and names the files relative to it.
void expect_report(const std::string& folder, const std::string& rows) {
    RAVEL_NEEDS(missing_real_fixtures());
    const std::string dir = real_fixtures_dir();
    std::string path = folder + "/index.dat";
    std::string before = read_file(dir + "/" + path);
    run_result r = run_ravel({"-f", path}, "", {}, dir);
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.err, long_erase);
    EXPECT_EQ(after_preamble(r.out), header_row + with_source(rows, path));
    EXPECT_EQ(read_file(dir + "/" + path), before);
}

}  // namespace

TEST(CacheE2E, BrowserCacheContainerGivesEveryEntry) {
    // 21 "URL " and 14 "REDR" entries; 4 directory names; users and headers from the stored data.
    expect_report("Content.IE5", R"(
2015-03-06,09:24:44.000 UTC,2015-08-25,11:05:20.262 UTC,2016-03-11,20:10:00.000 UTC,2015-08-25,11:05:22.000 UTC,URL ,http://static-hp-neu.s-msn.com/sc/54/4f1880.ico,gold_administrator,4f1880[1].ico,4286,ENG3X4ZR,1,HTTP/1.1 200 OK  Content-Type: image/x-icon  ETag: "0969961ef57d01:0"  Access-Control-Allow-Origin: *  X-Powered-By: ASP.NET  Access-Control-Allow-Methods: HEAD;GET;OPTIONS  X-XSS-Protection: 1  Content-Length: 4286
2013-10-19,01:08:06.000 UTC,2015-08-25,11:05:29.730 UTC,2016-02-21,11:05:30.000 UTC,2015-08-25,11:05:30.000 UTC,URL ,https://ieonline.microsoft.com/favicon.ico,gold_administrator,favicon[1].ico,1150,5ZBG4UOD,1,HTTP/1.1 200 OK  Content-Type: image/x-icon  Content-Length: 1150
2013-10-19,01:08:06.000 UTC,2015-08-25,11:05:37.137 UTC,2016-02-21,11:05:36.000 UTC,2015-08-25,11:05:36.000 UTC,URL ,http://www.bing.com/favicon.ico,gold_administrator,favicon[1].ico,1150,5F9C7HL9,3,HTTP/1.1 200 OK  Content-Type: image/x-icon  Content-Length: 1150
2013-09-13,07:19:18.000 UTC,2015-08-25,11:05:36.043 UTC,2016-07-08,08:51:02.000 UTC,2015-08-25,11:05:38.000 UTC,URL ,http://res1.windows.microsoft.com/resources/4.2/wol/shared/images/favicon.ico,gold_administrator,favicon[1].ico,7886,F4MAMNDH,1,HTTP/1.1 200 OK  Content-Type: image/x-icon  ETag: "0df198f51b0ce1:0"  X-Powered-By: ASP.NET  X-Content-Type-Options: nosniff  Access-Control-Allow-Origin: *  Content-Length: 7886
,,2015-08-25,11:08:53.757 UTC,,,2015-08-25,11:08:54.000 UTC,URL ,http://download.microsoft.com/download/7/1/7/7179A150-F2D2-4502-9D70-4B59EA148EAA/IE11-Windows6.1-x64-en-us.exe,,IE11-Windows6.1-x64-en-us[1].exe,55915216,ENG3X4ZR,1,http://download.microsoft.com/download/7/1/7/7179A150-F2D2-4502-9D70-4B59EA148EAA/IE11-Windows6.1-x64-en-us.exe
2015-06-09,04:52:20.000 UTC,2015-08-25,11:06:21.698 UTC,2015-08-26,03:15:50.000 UTC,2015-08-25,11:06:22.000 UTC,URL ,http://www.microsoft.com/favicon.ico?v2,gold_administrator,favicon[2].ico,17174,5ZBG4UOD,1,HTTP/1.1 200 OK  ETag: "1D0A270110F5A00"  Content-Length: 17174  Content-Type: image/x-icon  P3P: CP="ALL IND DSP COR ADM CONo CUR CUSo IVAo IVDo PSA PSD TAI TELo OUR SAMo CNT COM INT NAV ONL PHY PRE PUR UNI"  X-AspNet-Version: 4.0.30319  X-Powered-By: ASP.NET  Access-Control-Allow-Headers: Content-Type  Access-Control-Allow-Methods: GET; POST; PUT; DELETE; OPTIONS  Access-Control-Allow-Credentials: true  X-CCC: DE  X-CID: 2
,,2015-08-25,11:07:05.659 UTC,,,2015-08-25,11:07:06.000 UTC,URL ,http://download.microsoft.com/download/2/1/C/21C5BF29-634B-4D37-803D-AA565C267B15/IE11-Windows6.1-x64-de-de.exe,,IE11-Windows6.1-x64-de-de[1].exe,63320784,5F9C7HL9,1,http://download.microsoft.com/download/2/1/C/21C5BF29-634B-4D37-803D-AA565C267B15/IE11-Windows6.1-x64-de-de.exe
,,,,,,,,REDR,http://go.microsoft.com/fwlink/?LinkId=299196,,,0,,0,
2015-06-02,19:23:37.000 UTC,2015-08-25,11:09:07.155 UTC,,,2015-08-25,11:09:08.000 UTC,URL ,http://download.microsoft.com/download/C/0/1/C0186BE0-0ADB-4AF3-B97D-11FCEBE6BD68/SetupPolicy.cab,gold_administrator,SetupPolicy[1].cab,27189,F4MAMNDH,1,HTTP/1.1 200 OK  Content-Type: application/octet-stream  ETag: "06f42a0699dd01:0"  Content-Disposition: attachment  Content-Length: 27189
,,,,,,,,REDR,http://go.microsoft.com/fwlink/?LinkId=68929,,,0,,0,
2015-08-24,15:31:14.000 UTC,2015-08-25,11:09:18.795 UTC,2015-08-25,11:23:24.000 UTC,2015-08-25,11:09:20.000 UTC,URL ,http://www.microsoft.com/atwork/community/rss.xml,,rss[2].xml,32251,F4MAMNDH,1,HTTP/1.1 200 OK  Content-Type: text/xml  ETag: "903dc4e981ded01:0"  P3P: CP="ALL IND DSP COR ADM CONo CUR CUSo IVAo IVDo PSA PSD TAI TELo OUR SAMo CNT COM INT NAV ONL PHY PRE PUR UNI"  VTag: 279718525900000000  X-Powered-By: ASP.NET  X-Powered-By: ARR/2.5  X-Powered-By: ASP.NET  X-CCC: DE  X-CID: 2  Content-Length: 32251
,,,,,,,,REDR,http://go.microsoft.com/fwlink/?LinkId=68928,,,0,,0,
2015-08-18,19:06:22.000 UTC,2015-08-25,11:09:19.186 UTC,2015-08-25,11:12:08.000 UTC,2015-08-25,11:09:20.000 UTC,URL ,http://www.microsoft.com/athome/community/rss.xml,,rss[1].xml,25296,F4MAMNDH,1,HTTP/1.1 200 OK  Content-Type: text/xml  ETag: "e7a59df8e8d9d01:0"  P3P: CP="ALL IND DSP COR ADM CONo CUR CUSo IVAo IVDo PSA PSD TAI TELo OUR SAMo CNT COM INT NAV ONL PHY PRE PUR UNI"  VTag: 438567044600000000  X-Powered-By: ASP.NET  X-Powered-By: ARR/2.5  X-Powered-By: ASP.NET  X-CCC: DE  X-CID: 2  Content-Length: 25296
,,,,,,,,REDR,http://go.microsoft.com/fwlink/?LinkID=273751,,,0,,0,
2012-11-22,19:23:36.000 UTC,2015-08-25,11:09:20.358 UTC,,,2015-08-25,11:09:22.000 UTC,URL ,http://download.microsoft.com/download/1/8/F/18F9AE2C-4A10-417A-8408-C205420C22C3/Windows6.1-KB2786081-x64.cab,gold_administrator,Windows6.1-KB2786081-x64[1].cab,61841,ENG3X4ZR,1,HTTP/1.1 200 OK  Content-Type: application/octet-stream  ETag: "02c3adee6c8cd1:0"  Content-Disposition: attachment  Content-Length: 61841
,,,,,,,,REDR,http://go.microsoft.com/fwlink/?LinkID=303935,,,0,,0,
2013-07-16,08:56:53.000 UTC,2015-08-25,11:09:22.186 UTC,,,2015-08-25,11:09:24.000 UTC,URL ,http://download.microsoft.com/download/D/7/9/D79A0158-00A8-417D-9C12-F1082A86D5A8/Windows6.1-KB2834140-v2-x64.msu,gold_administrator,Windows6.1-KB2834140-v2-x64[1].msu,1003796,ENG3X4ZR,1,HTTP/1.1 200 OK  Content-Type: application/octet-stream  ETag: "3be0fa6a282ce1:0"  Content-Disposition: attachment  Content-Length: 1003796
,,,,,,,,REDR,http://go.microsoft.com/fwlink/?LinkID=324542,,,0,,0,
2013-09-14,06:34:24.000 UTC,2015-08-25,11:09:22.780 UTC,,,2015-08-25,11:09:24.000 UTC,URL ,http://download.microsoft.com/download/4/1/3/41321D2E-2D08-4699-A635-D9828AADB177/Windows6.1-KB2888049-x64.msu,gold_administrator,Windows6.1-KB2888049-x64[1].msu,2041176,ENG3X4ZR,1,HTTP/1.1 200 OK  Content-Type: application/octet-stream  ETag: "d633257414b1ce1:0"  Content-Disposition: attachment  Content-Length: 2041176
,,,,,,,,REDR,http://go.microsoft.com/fwlink/?LinkId=44406,,,0,,0,
,,2015-08-25,11:09:22.826 UTC,2015-08-25,11:09:24.000 UTC,2015-08-25,11:09:24.000 UTC,URL ,http://rss.msn.com/en-us/?feedoutput=rss&ocid=iehrs&unsub=true,,en-us[1],71493,5ZBG4UOD,1,HTTP/1.1 200 OK  Content-Length: 71493  Content-Type: application/rss+xml; charset=utf-8  Access-Control-Allow-Origin: *  X-AspNetMvc-Version: 5.2  X-AppVersion: 2.0.5709.23845  X-Activity-Id: 80db3cef-c0e8-42e7-b2bd-b2bf43858734  X-Az: {did:f08db8f3b6194a418d4507ddba3fea60; rid: 257; sn: eastus-hp; dt: 2015-08-20T21:43:15.9263935Z; bt: O}  X-UA-Compatible: IE=Edge;chrome=1  X-Content-Type-Options: nosniff  X-FRAME-OPTIONS: SAMEORIGIN  X-Powered-By: ASP.NET  Access-Control-Allow-Methods: HEAD;GET;OPTIONS  X-XSS-Protection: 1  X-MSEdge-Ref: Ref A: 80DB3CEFC0E842E7B2BDB2BF43858734 Ref B: EC8F67991AD3A5901A11E993AFCA7EAD Ref C: Tue Aug 25 04:06:52 2015 PST
,,,,,,,,REDR,http://go.microsoft.com/fwlink/?LinkID=254722,,,0,,0,
2011-06-04,22:37:40.000 UTC,2015-08-25,11:09:23.545 UTC,,,2015-08-25,11:09:24.000 UTC,URL ,http://download.microsoft.com/download/F/1/0/F106E158-89A1-41E3-A9B5-32FEB2A99A0B/Windows6.1-KB2533623-x64.msu,gold_administrator,Windows6.1-KB2533623-x64[1].msu,2314805,5ZBG4UOD,1,HTTP/1.1 200 OK  Content-Type: application/octet-stream  ETag: "271ae62823cc1:0"  Content-Disposition: attachment  Content-Length: 2314805
,,,,,,,,REDR,http://go.microsoft.com/fwlink/?LinkID=239722,,,0,,0,
2011-11-20,16:14:40.000 UTC,2015-08-25,11:09:24.045 UTC,,,2015-08-25,11:09:26.000 UTC,URL ,http://download.microsoft.com/download/9/1/1/91176CB7-4B64-4EE8-8BFC-FAADFD437F26/Windows6.1-KB2639308-x64.cab,gold_administrator,Windows6.1-KB2639308-x64[1].cab,5149227,5ZBG4UOD,1,HTTP/1.1 200 OK  Content-Type: application/octet-stream  ETag: "0d86d819fa7cc1:0"  Content-Disposition: attachment  Content-Length: 5149227
,,,,,,,,REDR,http://go.microsoft.com/fwlink/?LinkID=258385,,,0,,0,
2012-09-13,12:44:28.000 UTC,2015-08-25,11:09:24.467 UTC,,,2015-08-25,11:09:26.000 UTC,URL ,http://download.microsoft.com/download/6/C/A/6CA15546-A46C-4333-B405-AB18785ABB66/Windows6.1-KB2729094-v2-x64.msu,gold_administrator,Windows6.1-KB2729094-v2-x64[1].msu,1663018,5ZBG4UOD,1,HTTP/1.1 200 OK  Content-Type: application/octet-stream  ETag: "f266b283ad91cd1:0"  Content-Disposition: attachment  Content-Length: 1663018
,,,,,,,,REDR,http://go.microsoft.com/fwlink/?LinkID=258387,,,0,,0,
2012-08-21,06:52:52.000 UTC,2015-08-25,11:09:28.592 UTC,,,2015-08-25,11:09:30.000 UTC,URL ,http://download.microsoft.com/download/D/1/F/D1FBC611-CB6A-4BDF-9FC4-DF8F1407E0C9/Windows6.1-KB2731771-x64.cab,gold_administrator,Windows6.1-KB2731771-x64[1].cab,6510307,5ZBG4UOD,1,HTTP/1.1 200 OK  Content-Type: application/octet-stream  ETag: "07a7e95697fcd1:0"  Content-Disposition: attachment  Content-Length: 6510307
,,,,,,,,REDR,http://go.microsoft.com/fwlink/?LinkID=272391,,,0,,0,
2013-02-01,18:41:10.000 UTC,2015-08-25,11:09:30.076 UTC,,,2015-08-25,11:09:32.000 UTC,URL ,http://download.microsoft.com/download/1/4/9/14936FE9-4D16-4019-A093-5E00182609EB/Windows6.1-KB2670838-x64.cab,gold_administrator,Windows6.1-KB2670838-x64[1].cab,11795896,ENG3X4ZR,1,HTTP/1.1 200 OK  Content-Type: application/octet-stream  ETag: "0a75b4ab0ce1:0"  Content-Disposition: attachment  Content-Length: 11795896
,,,,,,,,REDR,http://go.microsoft.com/fwlink/?LinkID=324541,,,0,,0,
2013-08-29,13:09:54.000 UTC,2015-08-25,11:09:30.326 UTC,,,2015-08-25,11:09:32.000 UTC,URL ,http://download.microsoft.com/download/6/1/4/6141BFD5-40FD-4148-A3C9-E355338A9AC8/Windows6.1-KB2882822-x64.msu,gold_administrator,Windows6.1-KB2882822-x64[1].msu,8439057,ENG3X4ZR,1,HTTP/1.1 200 OK  Content-Type: application/octet-stream  ETag: "bda9a3db9a4ce1:0"  Content-Disposition: attachment  Content-Length: 8439057
,,,,,,,,REDR,http://go.microsoft.com/fwlink/?LinkID=299197,,,0,,0,
2015-06-02,23:14:42.000 UTC,2015-08-25,11:09:44.326 UTC,,,2015-08-25,11:09:46.000 UTC,URL ,http://download.microsoft.com/download/C/0/1/C0186BE0-0ADB-4AF3-B97D-11FCEBE6BD68/IE11-Windows6.1-KB2841134-x64.cab,gold_administrator,IE11-Windows6.1-KB2841134-x64[1].cab,58464861,ENG3X4ZR,1,HTTP/1.1 200 OK  Content-Type: application/octet-stream  Content-Disposition: attachment  ETag: "05ddfe7899dd01:0"  Content-Length: 58464861
)");
}

TEST(CacheE2E, HistoryContainerGivesEveryEntry) {
    // "History" in the path: category 2, stamps in UTC. Binary data: no header, no user.
    expect_report("History.IE5", R"(
2015-08-25,11:05:18.512 UTC,2015-08-25,11:05:18.512 UTC,2015-09-20,10:58:10.000 UTC,2015-08-25,11:05:20.000 UTC,URL ,Visited: gold_administrator@http://www.msn.com/?ocid=iehp,,,0,,1,
2015-08-25,11:05:31.355 UTC,2015-08-25,11:05:31.355 UTC,2015-09-20,10:58:22.000 UTC,2015-08-25,11:05:32.000 UTC,URL ,Visited: gold_administrator@http://windows.microsoft.com/en-AU/internet-explorer/products/ie-8/welcome,,,0,,1,
2015-08-25,11:05:19.340 UTC,2015-08-25,11:05:19.340 UTC,2015-09-20,10:58:10.000 UTC,2015-08-25,11:05:20.000 UTC,URL ,Visited: gold_administrator@http://go.microsoft.com/fwlink/?LinkId=69157,,,0,,1,
2015-08-25,11:05:41.005 UTC,2015-08-25,11:05:41.005 UTC,2015-09-20,10:58:32.000 UTC,2015-08-25,11:05:42.000 UTC,URL ,Visited: gold_administrator@http://www.bing.com/search?format=rss&q=ie+11&src=IE-SearchBox&FORM=IE8SRC,,,0,,1,
2015-08-25,11:05:31.996 UTC,2015-08-25,11:05:31.996 UTC,2015-09-20,10:58:24.000 UTC,2015-08-25,11:05:32.000 UTC,URL ,Visited: gold_administrator@http://go.microsoft.com/fwlink/?LinkID=121792,,,0,,1,
2015-08-25,11:06:21.714 UTC,2015-08-25,11:06:21.714 UTC,2015-09-20,11:06:22.000 UTC,2015-08-25,11:06:22.000 UTC,URL ,Visited: gold_administrator@http://www.microsoft.com/de-ch/download/internet-explorer.aspx,,,0,,6,
2015-08-25,11:08:18.074 UTC,2015-08-25,11:08:18.074 UTC,2015-09-20,11:08:20.000 UTC,2015-08-25,11:08:20.000 UTC,URL ,Visited: gold_administrator@http://www.msn.com/de-ch/?ocid=iehp,,,0,,16,
2015-08-25,11:05:41.036 UTC,2015-08-25,11:05:41.036 UTC,2015-09-20,10:58:32.000 UTC,2015-08-25,11:05:42.000 UTC,URL ,Visited: gold_administrator@http://www.bing.com/search?q=ie+11&src=IE-SearchBox&FORM=IE8SRC,,,0,,5,
2015-08-25,11:08:57.951 UTC,2015-08-25,11:08:57.951 UTC,2015-09-20,11:08:58.000 UTC,2015-08-25,11:08:58.000 UTC,URL ,Visited: gold_administrator@http://download.microsoft.com/download/7/1/7/7179A150-F2D2-4502-9D70-4B59EA148EAA/IE11-Windows6.1-x64-en-us.exe,,,0,,1,
2015-08-25,11:06:43.367 UTC,2015-08-25,11:06:43.367 UTC,2015-09-20,11:06:44.000 UTC,2015-08-25,11:06:44.000 UTC,URL ,Visited: gold_administrator@http://www.microsoft.com/de-ch/download/confirmation.aspx?id=40901,,,0,,6,
2015-08-25,11:07:23.699 UTC,2015-08-25,11:07:23.699 UTC,2015-09-20,11:07:24.000 UTC,2015-08-25,11:07:24.000 UTC,URL ,Visited: gold_administrator@http://download.microsoft.com/download/2/1/C/21C5BF29-634B-4D37-803D-AA565C267B15/IE11-Windows6.1-x64-de-de.exe,,,0,,1,
2015-08-25,11:08:08.506 UTC,2015-08-25,11:08:08.506 UTC,2015-09-20,11:08:10.000 UTC,2015-08-25,11:08:10.000 UTC,URL ,Visited: gold_administrator@http://www.microsoft.com/de-ch/download/internet-explorer-11-for-windows-7-details.aspx,,,0,,12,
2015-08-25,11:05:36.043 UTC,2015-08-25,11:05:36.043 UTC,2015-09-20,10:58:28.000 UTC,2015-08-25,11:05:38.000 UTC,URL ,Visited: gold_administrator@http://windows.microsoft.com/en-au/internet-explorer/ie-8-welcome,,,0,,10,
2015-08-25,11:15:32.342 UTC,2015-08-25,11:15:32.342 UTC,2015-09-20,11:15:34.000 UTC,2015-08-25,11:15:34.000 UTC,URL ,Visited: gold_administrator@http://www.microsoft.com/en-us/download/confirmation.aspx?id=40901,,,0,,7,
2015-08-25,11:15:32.342 UTC,2015-08-25,11:15:32.342 UTC,2015-09-20,11:15:34.000 UTC,2015-08-25,11:15:34.000 UTC,URL ,Visited: gold_administrator@http://www.microsoft.com/en-us/download/confirmation.aspx?id=40901,,,0,,8,
2015-08-25,11:15:32.342 UTC,2015-08-25,11:15:32.342 UTC,2015-09-20,11:15:34.000 UTC,2015-08-25,11:15:34.000 UTC,URL ,Visited: gold_administrator@http://www.msn.com/de-ch/?ocid=iehp&AR=1,,,0,,4,
2015-08-25,11:06:32.117 UTC,2015-08-25,11:06:32.117 UTC,2015-09-20,11:06:34.000 UTC,2015-08-25,11:06:34.000 UTC,URL ,Visited: gold_administrator@http://www.microsoft.com/de-ch/download/confirmation.aspx?id=40901,,,0,,2,
)");
}

// Inputs that are no container at all, and names that give no file to read (the hostile inputs go further).
TEST(CacheE2E, BadInputsGetTheirMessageAndStatus) {
    temp_dir dir;
    std::string random(65536, '\0');
    uint32_t state = 12345;
    for (char& c : random) c = static_cast<char>((state = state * 1103515245u + 12345u) >> 24);
    ASSERT_TRUE(write_file(dir.file("random"), random));
    const std::string missing = dir.file("missing"), pipe = dir.file("pipe");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const std::pair<std::string, std::string> cases[] = {  // path, standard output behind the preamble
        {dir.file("random"), header_row}, {dir.path(), ""},  // a folder opens
        {missing, "prob opening " + missing + " for read, aborting\n"},
        {pipe, "prob opening " + pipe + " for read, aborting\n"}};
    for (const auto& c : cases) {  // the message loses its line end; the console clears its line on exit
        const run_result r = run_ravel({"-f", c.first});
        EXPECT_EQ(after_preamble(r.out), c.second) << c.first;
        EXPECT_EQ(r.err, long_erase + "probs parsing file: " + c.first + long_erase) << c.first;
        EXPECT_EQ(r.status, 255) << c.first;
    }
    EXPECT_TRUE(read_file(dir.file("random")) == random);
}
