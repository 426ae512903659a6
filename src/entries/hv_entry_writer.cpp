#include "entries/hv_entry_writer.h"

#include "storage/hv_text_conversion.h"

const char* road_name(road_kind road) {
    static const char* const names[] = {"file", "partition", "vmdk", "ewf", "image"};
    return names[static_cast<int>(road)];
}

std::string input_ref::source_text() const {
    switch (road) {
        case road_kind::partition:
            return path + ":\\";
        case road_kind::vmdk: {
            std::string text, name;
            for (const auto& wide : vmdk_files) {
                wide_to_utf8(name, wide);
                text += name;
                text += "; ";
            }
            if (!text.empty()) text.resize(text.size() - 2);
            return text;
        }
        default:
            return path;
    }
}

std::string input_ref::image_text() const {
    if (road == road_kind::file) return std::string();
    return image.empty() ? source_text() : image;
}
