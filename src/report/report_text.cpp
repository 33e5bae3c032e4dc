#include "report/report_text.h"

namespace quarry {

std::string hex_and_decimal(std::uint64_t value, unsigned digits) {
    return hex(value, digits) + " [" + std::to_string(value) + "]";
}

std::string bytes_and_sectors(std::uint64_t bytes, std::uint32_t bytes_per_sector) {
    const std::uint64_t sectors = bytes_per_sector == 0 ? 0 : bytes / bytes_per_sector;
    return hex(bytes, 12) + " bytes [0x" + hex(sectors, 1) + " sectors]";
}

std::string file_attribute_words(std::uint32_t attributes) {
    struct attribute_word {
        std::uint32_t bit;
        const char* word;
    };
    static constexpr attribute_word words[] = {
        {0x0001, "READ_ONLY"},
        {0x0002, "HIDDEN"},
        {0x0004, "SYSTEM"},
        {0x0010, "DIRECTORY"},
        {0x0020, "ARCHIVE"},
        {0x0040, "DEVICE"},
        {0x0080, "NORMAL"},
        {0x0100, "TEMPORARY"},
        {0x0200, "SPARSE_FILE"},
        {0x0400, "REPARSE_PT"},
        {0x0800, "COMPRESSED"},
        {0x1000, "OFFLINE"},
        {0x2000, "CONTENT_NOT_INDEXED"},
        {0x4000, "ENCRYPTED"},
        {0x10000, "VIRTUAL"},
        {0x10000000, "DIRECTORY"},  // as $FILE_NAME marks a directory
    };
    std::string out;
    for (const attribute_word& entry : words) {
        if ((attributes & entry.bit) != 0) {
            out += out.empty() ? "" : ", ";
            out += entry.word;
        }
    }
    if (!out.empty()) {
        return out;
    }
    return attributes == 0 ? "none set" : "unk";
}

}  // namespace quarry
