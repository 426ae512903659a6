#include "report/hv_timeline.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

std::string json_string(const std::string& text) {
    std::vector<char> out(6 * text.size() + 2);
    return std::string(out.data(), put_json_string(out.data(), text.data(), text.size()));
}

}  // namespace

// Well-formed UTF-8 passes whole; every byte of an ill-formed sequence becomes the code point of its
// value, so nothing is dropped and the text is valid UTF-8.
TEST(Timeline, JsonStrings) {
    struct {
        std::string text, json;
    } cases[] = {
        {"", "\"\""},
        {"plain text longer than a word", "\"plain text longer than a word\""},
        {"0123456789\"abc\\def", "\"0123456789\\\"abc\\\\def\""},  // specials behind a plain word
        {"a\r\nb\tc", "\"a\\r\\nb\\tc\""},
        {std::string("\0\x01\x1f\x7f", 4), "\"\\u0000\\u0001\\u001f\\u007f\""},
        {"caf\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80 \xF4\x8F\xBF\xBF", "\"caf\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80 \xF4\x8F\xBF\xBF\""},
        {"caf\xE9!", "\"caf\xC3\xA9!\""},                                   // Latin-1 alone
        {"\xC0\xAF", "\"\xC3\x80\xC2\xAF\""},                               // overlong "/"
        {"\xE0\x80\xAF", "\"\xC3\xA0\xC2\x80\xC2\xAF\""},                   // overlong, three bytes
        {"\xED\xA0\x80", "\"\xC3\xAD\xC2\xA0\xC2\x80\""},                   // a surrogate
        {"\xF4\x90\x80\x80", "\"\xC3\xB4\xC2\x90\xC2\x80\xC2\x80\""},       // past U+10FFFF
        {"\xF5\x80", "\"\xC3\xB5\xC2\x80\""},
        {"x\xE2\x82", "\"x\xC3\xA2\xC2\x82\""},                             // cut at the end
        {"\xE2\x82x", "\"\xC3\xA2\xC2\x82x\""},                             // cut by a plain byte
    };
    for (const auto& c : cases) EXPECT_EQ(json_string(c.text), c.json) << c.text;
    // Plain bytes go in runs: a special byte at every place of texts around a run's length.
    const std::pair<char, std::string> specials[] = {{'"', "\\\""}, {'\n', "\\n"}, {'\x7f', "\\u007f"}, {'\xE9', "\xC3\xA9"}};
    for (size_t size = 1; size <= 40; ++size)
        for (size_t at = 0; at < size; ++at)
            for (const auto& special : specials) {
                std::string text(size, 'a');
                text[at] = special.first;
                EXPECT_EQ(json_string(text), "\"" + std::string(at, 'a') + special.second + std::string(size - at - 1, 'a') + "\"")
                    << size << " " << at;
            }
}
