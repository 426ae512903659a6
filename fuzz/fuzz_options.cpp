// The option table over arbitrary argument vectors: the input cut at NULs gives the words behind
// the program's name. Vectors that name a file to write (-out, -outfile, -diags) are skipped, so
// nothing is made or deleted; fuzz/run_smoke and fuzz/run_long also start it in a scratch folder.
#include <cctype>
#include <cstdint>
#include <string>

#include "cmdline/hv_cmd_params.h"
#include "cmdline/hv_options.h"
#include "fuzz_common.h"

namespace {

bool names_a_file_to_write(std::string word) {
    for (char& c : word) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return word == "-out" || word == "-outfile" || word == "-diags";
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > 4096) return 0;
    arg_list args = fuzzsupport::split_at_nul(data, size);
    for (const std::string& word : args) {
        if (names_a_file_to_write(word)) return 0;
    }
    args.insert(args.begin(), "ravel");
    cmd_opts opts;
    parse_options(opts, args);
    return 0;
}
