// The whole content of a small non-resident attribute, read at once: attribute lists that do not fit their
// record.
#pragma once

#include "volume/ntfs.h"

#include <cstdint>
#include <vector>

namespace quarry {

// Reads all clusters of a non-resident attribute, in the order of its runs. False, with `bytes` empty, if
// there is no source, the attribute has no runs, one of its clusters cannot be read, or it claims more than
// the source holds.
[[nodiscard]] bool read_attribute_clusters(CNtfs& ntfs, const attribute& at,
                                           std::vector<std::uint8_t>& bytes);

}  // namespace quarry
