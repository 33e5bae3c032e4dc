#include "frontend/options/source_options.h"

#include "disk/vmdk_check.h"
#include "disk/volume_detection.h"
#include "foundation/byte_view.h"
#include "foundation/ql_number.h"
#include "foundation/ql_portable_dir.h"
#include "foundation/ql_string.h"
#include "foundation/ql_text.h"
#include "frontend/options/source_table.h"
#include "frontend/output/console.h"
#include "frontend/output/stdio_stream.h"

#include <cstdio>
#include <optional>

namespace quarry {

namespace {

// -offset, signed as it is typed; a text that is no number leaves the offset as it is. True if the option is
// there.
bool parse_offset(std::uint64_t& offset, arg_list& args) {
    std::string value;
    if (!find_value("-offset", value, args)) {
        return false;
    }
    auto number = static_cast<std::int64_t>(offset);
    parse_i64(number, value);
    offset = static_cast<std::uint64_t>(number);
    return true;
}

// Whether a volume may be longer than its source. Looked at only when an offset is known.
bool ignores_image_size(std::uint64_t offset, arg_list& args) {
    return offset != 0 && find_flag("-ignore_image_size", args);
}

void take_vmdk_files(std::vector<std::wstring>& list, std::string_view option, const std::string& first_value,
                     arg_list& args) {
    std::wstring files = widen(first_value);
    replace_char(files, L',', L'|', false);
    replace_char(files, L';', L'|', false);
    split(list, files, L'|', {.trim_each = true});
    // Deliberate: only the first place of the option holds a list. A further one is one file, separators and
    // blanks included.
    std::string value;
    while (find_value(option, value, args)) {
        list.push_back(widen(value));
    }
}

void print_suggestion(std::string_view option, const std::vector<std::wstring>& suggested) {
    std::string word;
    if (!suggested.empty() && as_shell_word(word, suggested)) {
        print_error("suggested array: " + std::string(option) + " " + word + "\n");
    }
}

// An image without an offset: a bare volume, or a disk whose volumes are to be shown to the user.
bool find_volume_in_image(source& image) {
    std::ostringstream stream;
    bool found = false;
    if (locate_volume(stream, image, found, false)) {
        return true;
    }
    if (image.offset == 0 && found) {
        // Deliberate: a bare volume that is shorter than its boot sector says is taken without a word.
        return true;
    }
    print_error(stream.str() + "\n");
    return false;
}

bool parse_image(quarry_opts& opts, source_kind kind, const std::string& path, arg_list& args) {
    const std::wstring absolute = canonical_path(std::wstring_view(widen(path)), L'/');
    source& image = opts.m_source;
    image = source::of_one_path(kind, absolute);
    if (absolute.empty()) {
        // Deliberate: the message ends in a comma after its line end, not before it. The user sees the comma
        // at the start of the next line.
        print_error("prob understanding image [" + path + "] aborting\n,");
        return false;
    }
    parse_offset(image.offset, args);
    if (image.offset != 0) {
        const bool ignore_size = ignores_image_size(image.offset, args);
        bool found = false;
        // Deliberate: with an offset the words about the image go to standard output, not to standard error
        // as without one. The user sees both on a terminal.
        stdio_stream output(stdout);
        const bool located = locate_volume(output, image, found, ignore_size);
        flush_output();
        return located;
    }
    if (!opts.m_first_ntfsvol) {
        return find_volume_in_image(image);
    }
    constexpr std::size_t most_partitions = 768;
    std::vector<std::uint64_t> offsets;
    if (ntfs_offsets(image, most_partitions, offsets)) {
        image.offset = offsets.front();
    }
    return true;
}

bool parse_device(quarry_opts& opts, source_kind kind, const std::string& path) {
    opts.m_source = source::of_one_path(kind, widen(path.size() == 1 ? path + ":" : path));
    return opts.pass_gate();
}

bool parse_drive(quarry_opts& opts, std::string number, arg_list& args) {
    if (!opts.pass_gate()) {
        return false;
    }
    std::int64_t drive = 0;
    parse_i64(drive, number);
    source& chosen = opts.m_source;
    chosen = source::of_drive(static_cast<std::int32_t>(low_32_bits(static_cast<std::uint64_t>(drive))), 0);
    if (!parse_offset(chosen.offset, args) && opts.m_first_ntfsvol) {
        // Deliberate: the first volume is looked for on drive 0, whatever drive was asked for, and its offset
        // is then used on the drive that was.
        std::vector<std::uint64_t> offsets;
        if (ntfs_offsets_on_drive(0, offsets)) {
            chosen.offset = offsets.front();
        }
    }
    const bool ignore_size = ignores_image_size(chosen.offset, args);
    bool found = false;
    stdio_stream output(stdout);
    stdio_stream messages(stderr);
    messages.tie(&output);  // what was printed comes first
    return locate_volume(messages, chosen, found, ignore_size);
}

// What an option names. Nothing if it is not there.
//
// Deliberate: an option for several files that has no list hides the sources after it; it does not count as
// absent. The user sees the run go on without a source. Any other option without a value counts as absent.
std::optional<bool> parse_source_option(quarry_opts& opts, const source_option& option, arg_list& args) {
    if (option.value == source_value::files) {
        if (!peek_flag(option.word, args, 0)) {
            return std::nullopt;
        }
        opts.m_source = source::of_virtual_disk({}, 0);
        return parse_vmdk_option(opts.m_run, opts.m_source, args, check_virtual_disk, locate_volume, true,
                                 option.word);
    }
    std::string value;
    if (!find_value(option.word, value, args)) {
        return std::nullopt;
    }
    switch (option.value) {
        case source_value::device:
            return parse_device(opts, option.kind, value);
        case source_value::number:
            return parse_drive(opts, value, args);
        case source_value::file:
        case source_value::files:
            break;
    }
    return parse_image(opts, option.kind, value, args);
}

}  // namespace

bool parse_vmdk_option(cmd_params& opts, source& disk, arg_list& args, const vmdk_chain_check& chain_check,
                       const vmdk_volume_check& volume_check, bool in_place, std::string_view option_name) {
    if (!in_place && !opts.parse(args)) {
        return false;
    }
    std::string value;
    if (!find_value(option_name, value, args)) {
        return true;
    }
    disk = source::of_virtual_disk({}, disk.offset);
    take_vmdk_files(disk.paths, option_name, value, args);
    parse_offset(disk.offset, args);
    std::ostringstream stream;
    std::vector<std::wstring> suggested;
    if (!chain_check(disk, stream, suggested)) {
        print_error(stream.str() + "\n");
        print_suggestion(option_name, suggested);
        return false;
    }
    if (!volume_check) {
        return true;
    }
    const bool ignore_size = ignores_image_size(disk.offset, args);
    stream.str("");
    bool found = false;
    // Deliberate: a disk with several volumes is taken without an offset, and the last of them is meant.
    if (volume_check(stream, disk, found, ignore_size) || found) {
        return true;
    }
    print_error(stream.str() + "\n");
    return false;
}

bool parse_source(quarry_opts& opts, arg_list& args) {
    opts.m_source = {};
    for (const source_option& option : source_options) {
        if (const std::optional<bool> parsed = parse_source_option(opts, option, args)) {
            return *parsed;
        }
    }
    return true;
}

}  // namespace quarry
