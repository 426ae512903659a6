#include "driver/hv_ewf_input.h"

#include "foundation/hv_console.h"
#include "storage/hv_ewf.h"

bool open_ewf_input(ewf_image& image, const std::string& path) {
    std::string segment;
    std::string text;
    switch (image.open(path, segment)) {
        case ewf_fault::none:
            return true;
        case ewf_fault::not_offered:
            text = "This option is not offered in this build";
            break;
        case ewf_fault::cannot_open:
            text = "prob opening " + path + " for read, aborting";
            break;
        case ewf_fault::not_ewf:
            text = "prob reading " + path + ": not an EWF image";
            break;
        case ewf_fault::segment_missing:
            text = "prob reading " + path + ": segment " + segment + " is missing";
            break;
        case ewf_fault::segment_cut:
            text = "prob reading " + path + ": segment " + segment + " is cut short";
            break;
        case ewf_fault::damaged:
            text = "prob reading " + path + ": its segment files are damaged";
            break;
    }
    // Not print_error, which would drop the line end.
    write_console_error(text + "\n");
    return false;
}
