// From the options and a path to the request that a copy carries out.
//
// A path on a volume may name the volume itself, as "c:\dir\file" and the path of a shadow copy do, where the
// options name no source. So source and path are settled together, then what no output may overwrite, then
// the destination.
#pragma once

#include "frontend/copy/copy_request.h"
#include "frontend/copy/copy_rules.h"
#include "frontend/copy/destination.h"
#include "frontend/options/quarry_opts.h"

#include <optional>
#include <string>

namespace quarry {

// Settles all of a request for a path on the volume, empty for none. `check_dst` has the destination tried
// out. `target` is the destination of the request. Nothing after a message.
[[nodiscard]] std::optional<copy_request> settle_request(quarry_opts& opts, const std::wstring& path,
                                                         const copy_rules& rules, bool check_dst,
                                                         destination& target);

}  // namespace quarry
