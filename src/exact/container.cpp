#include "exact/container.h"

#include "disk/ewf_source.h"
#include "disk/vmdk_source.h"
#include "foundation/byte_view.h"

#include <algorithm>
#include <array>
#include <string>
#include <string_view>
#include <vector>

namespace quarry::exact {

namespace {

constexpr std::size_t head_bytes = 512;

struct container {
    std::string_view signature;
    std::string_view name;
    std::string_view what_to_do;
};

constexpr auto containers = std::to_array<container>({
    {"QFI\xfb", "a QCOW image", read_by_raw_view},
    {"vhdxfile", "a VHDX image", read_by_raw_view},
    {"KDMV", "a VMDK", "say -vmdk"},
    {"# Disk Descr", "the description of a VMDK", "say -vmdk"},
});

// First bytes that a compressed file has.
struct compression {
    std::string_view signature;
    std::string_view program;
};

constexpr auto compressions = std::to_array<compression>({
    {std::string_view("\xFD"
                      "7zXZ\0",
                      6),
     "xz"},
    {"\x1F\x8B\x08", "gzip"},
    {"BZh", "bzip2"},
    {"\x28\xB5\x2F\xFD", "zstd"},
});

constexpr std::string_view zip_signature = "PK\x03\x04";
constexpr std::uint64_t zip_name_length = 26;
constexpr std::uint64_t zip_name = 30;
constexpr std::string_view aff4_first_name = "version.txt";
constexpr std::string_view vhd_signature = "conectix";
// Early makers wrote the footer of a VHD one byte short.
constexpr auto vhd_footer_bytes = std::to_array<std::uint64_t>({512, 511});

tl::unexpected<failure> refused(const exact_source& source, std::string_view name,
                                std::string_view what_to_do) {
    return fail(failure_code::source_open, where::source(source.path()),
                "is " + std::string(name) + "; " + std::string(what_to_do));
}

bool is_aff4(byte_view head) {
    return head.text_at(0, zip_signature) && head.u16_or_zero(zip_name_length) == aff4_first_name.size() &&
           head.text_at(zip_name, aff4_first_name);
}

bool ends_as_vhd(const exact_source& source) {
    return std::any_of(vhd_footer_bytes.begin(), vhd_footer_bytes.end(), [&](std::uint64_t footer_bytes) {
        std::array<std::uint8_t, vhd_signature.size()> head{};
        return source.size() >= footer_bytes && source.read(head, source.size() - footer_bytes) &&
               byte_view(head).text_at(0, vhd_signature);
    });
}

}  // namespace

result<void> refuse_container(const exact_source& source) {
    std::vector<std::uint8_t> bytes(
        static_cast<std::size_t>(std::min<std::uint64_t>(head_bytes, source.size())));
    // What cannot be read has no signature; the volume's own reads will fail.
    if (!source.read(bytes, 0)) {
        return {};
    }
    const byte_view head(bytes);
    if (begins_as_ewf(head)) {
        return refused(source, "an EWF image", "say -image");
    }
    for (const container& each : containers) {
        if (head.text_at(0, each.signature)) {
            return refused(source, each.name, each.what_to_do);
        }
    }
    if (is_aff4(head)) {
        return refused(source, "an AFF4 image", read_by_raw_view);
    }
    if (ends_as_vhd(source)) {
        return refused(source, "a VHD image", read_by_raw_view);
    }
    return {};
}

std::string_view compressed_by(const exact_source& source) {
    std::array<std::uint8_t, 6> head{};
    if (source.size() < head.size() || !source.read(head, 0)) {
        return "";
    }
    const auto found = std::find_if(compressions.begin(), compressions.end(), [&](const compression& each) {
        return byte_view(head).text_at(0, each.signature);
    });
    return found == compressions.end() ? "" : found->program;
}

void warn_of_compression(const exact_source& source, notices& told) {
    if (const std::string_view program = compressed_by(source); !program.empty()) {
        told.warn("compressed", where::source(source.path()),
                  "begins as a file of " + std::string(program) + " does; decompress it first");
    }
}

}  // namespace quarry::exact
