// The options that name the source, and where on it the volume lies.
//
// They exclude each other: the first of source_table.h that is there decides, and the others are not looked
// at.
#pragma once

#include "disk/source.h"
#include "frontend/arg_list.h"
#include "frontend/options/cmd_params.h"
#include "frontend/options/quarry_opts.h"

#include <functional>
#include <ostream>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace quarry {

// Checks the files of a virtual disk; see check_virtual_disk.
using vmdk_chain_check =
    std::function<bool(source& disk, std::ostringstream& stream, std::vector<std::wstring>& suggested)>;
// Finds the volume on a virtual disk; see locate_volume.
using vmdk_volume_check =
    std::function<bool(std::ostream& stream, source& disk, bool& found, bool ignore_image_size)>;

// The option that names the files of a virtual disk, which `disk` becomes; its offset stays where none is
// given. Unless `in_place`, the generic options are parsed first. True, with `disk` as it was, if the option
// is not there. `volume_check` may be empty.
[[nodiscard]] bool parse_vmdk_option(cmd_params& opts, source& disk, arg_list& args,
                                     const vmdk_chain_check& chain_check,
                                     const vmdk_volume_check& volume_check, bool in_place,
                                     std::string_view option_name);

// Chooses the source and settles the volume offset. False after a message.
[[nodiscard]] bool parse_source(quarry_opts& opts, arg_list& args);

}  // namespace quarry
