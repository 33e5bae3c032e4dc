// The pump: the content of one attribute, moved to a sink.
#pragma once

#include <cstdint>
#include <ostream>
#include <string>

#include "foundation/status_log.h"
#include "volume/attr_item.h"
#include "volume/ntfs.h"

namespace quarry {

struct pump_context {
    status_log& log;
    std::uint64_t bytes_copied = 0;
};

struct pump_rules {
    bool raw = false;
    bool skip_sparse = false;
    bool include_slack = false;
    bool want_md5 = false;
};

[[nodiscard]] bool pump_stream(CNtfs* ntfs, attr_item& item, std::ostream& out, const pump_rules& rules,
                               std::string& md5_text, pump_context& context);
[[nodiscard]] bool copy_to_stream(CNtfs* ntfs, attr_item& item, std::ostream& out, bool raw, bool skip_sparse,
                                  pump_context& context);
[[nodiscard]] bool copy_hashed(CNtfs* ntfs, attr_item& item, std::ostream& out, bool raw, bool skip_sparse,
                               bool want_md5, std::string& md5_text, pump_context& context);

}  // namespace quarry
