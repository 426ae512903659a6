// The -ewf road's opening: the E01 set a segment file belongs to, whose media the device road then
// reads as it reads a VMDK chain's disk.
#pragma once
#include <string>

class ewf_image;

// Opens the set of `path`; false, with the reason on standard error, when it won't open.
bool open_ewf_input(ewf_image& image, const std::string& path);
