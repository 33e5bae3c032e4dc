// Contents of the system files whose bytes do not depend on the volume.
#pragma once

#include "support/byte_writer.h"

namespace quarry::test {

// $AttrDef: 160 bytes for each attribute type.
[[nodiscard]] bytes attribute_definitions();

// $UpCase: one unit for each of 65,536; only ASCII letters are folded.
[[nodiscard]] bytes upper_case_table();

}  // namespace quarry::test
