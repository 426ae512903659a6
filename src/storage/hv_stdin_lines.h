// Lines of standard input: the list of paths that -pipe reads.
#pragma once
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace uni {

// Lines of standard input, at most 4095 bytes per read; a longer line arrives in pieces.
class stdin_stream {
public:
    explicit stdin_stream(bool flag = false);
    virtual ~stdin_stream();
    stdin_stream(const stdin_stream&) = delete;
    stdin_stream& operator=(const stdin_stream&) = delete;

    // Takes `source` (not owned) as the line source and gets the line buffer; the open flag.
    bool open(FILE* source = stdin);
    bool is_open() const { return ok; }

    // One line into `out` (cleared first); false when not open or at end of input.
    // `strip` removes every trailing CR and LF.
    virtual bool read(std::string& out, bool strip);
    // The same, decoded from UTF-8; a bad byte doesn't fail the read, `out` keeps what came before.
    virtual bool read(std::wstring& out, bool strip);

protected:
    std::vector<char> line;
    FILE* stream = nullptr;
    bool ok = false;
    bool flag = false;  // stored only
    int32_t line_size = 4096;
};

}  // namespace uni
