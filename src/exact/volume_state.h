// What the volume says of itself: its version, whether it was left dirty, whether its journal was closed.
//
// Record 3 has the version and the dirty flag in $VOLUME_INFORMATION. The journal, entry 2, begins with two
// restart pages, of which the one with the higher number counts. Its restart area says whether the journal
// was closed when the volume was last released. If it was not, the system would change the volume before it
// used it; nothing of that is done here, so it must be reported.
//
//     | RSTR page | RSTR page | log records ...
//       |
//       offset 16  size of a page        restart area   +0   number of the last write (LSN)
//       offset 24  where the restart                    +12  list of clients in use, 0xFFFF is none
//                  area begins                          +14  flags, bit 1 is "clean"
//
// A journal that was never used is all 0xFF. It may have 64 MiB, which takes longer to read than most files,
// so it is read as a whole only where its state is written down. Where its restart pages are blank there is
// nothing that the system would replay.
#pragma once

#include "exact/failure.h"
#include "exact/mft.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace quarry::exact {

enum class journal_state : std::uint8_t { clean, not_clean, empty, unknown };

// "clean", "not clean", "empty", "unknown".
[[nodiscard]] std::string_view journal_text(journal_state state);

struct volume_state {
    // Nothing if record 3 cannot be read.
    std::optional<std::uint8_t> major_version;
    std::optional<std::uint8_t> minor_version;
    std::optional<bool> dirty;
    // The volume's name, in units; empty if it has none or it cannot be read.
    std::u16string label;
    journal_state journal = journal_state::unknown;

    // "3.1", or "unknown".
    [[nodiscard]] std::string version_text() const;
};

// Reads the state. What cannot be read is a warning (volume-information, journal), never a failure. Warns
// (version) of a version that is not 1.2, 3.0 or 3.1, (dirty) of the flag, (journal) of a journal that was
// not closed. A journal whose first 128 KiB, where the restart pages are, are blank counts as empty.
[[nodiscard]] volume_state read_volume_state(const mft& table, notices& told);

// Reads the rest of a journal that counts as empty. If not all of it is blank its state is unknown, with the
// warning journal.
void check_empty_journal(volume_state& state, const mft& table, notices& told);

}  // namespace quarry::exact
