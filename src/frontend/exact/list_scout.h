// Goes ahead of a list, so that what its lines need is in memory when their turn comes.
//
// A line needs blocks of an index, a record, a few bits of $Bitmap and the clusters of its file, each found
// by means of the one before. Where nothing of them is in memory that is four waits for a disk, line after
// line. The scout takes the same steps for the lines ahead, without ever waiting: it reads what is in memory,
// and has the system fetch what is not. With each line that is copied it comes a step further on all of them.
//
//     line 12   being copied
//     line 14   its clusters are announced
//     line 25   its record is announced
//     line 44   a block of the index is announced
//
// What it finds is dropped again: the copy does not depend on it in any way, and what it fails in is said by
// the copy, when that fails too. Where everything is in memory it looks at few lines only.
#pragma once

#include "disk/byte_source.h"
#include "disk/cached_source.h"
#include "exact/exact_volume.h"
#include "exact/stored_stream.h"
#include "exact/warm_directories.h"
#include "frontend/exact/exact_messages.h"
#include "frontend/exact/exact_options.h"
#include "frontend/exact/list_lines.h"

#include <cstdint>
#include <deque>
#include <memory>

namespace quarry::exact {

class list_scout {
  public:
    // Lines that are looked at ahead of the one that is copied.
    static constexpr std::uint64_t lines_ahead = 32;

    // All must outlive the scout. `volume` is the one that is copied from, open on `source`.
    list_scout(byte_source& source, const exact_volume& volume, const exact_options& options);

    // Goes on, ahead of the line with this number, through the lines that are there without a wait.
    void look_ahead(std::uint64_t number, const list_lines& lines);

  private:
    struct expected_line {
        std::uint64_t number;
        copy_object object;
        bool done = false;
        bool tried = false;
    };

    [[nodiscard]] bool open();
    void take_lines(std::uint64_t number, const list_lines& lines);
    void go_on(expected_line& line);
    // Announces the beginning of a stream. True if it was in memory.
    bool announce_start(const stored_stream& content);

    cached_source m_source;
    const exact_volume* m_copied_from;
    const exact_options* m_options;
    int m_openings = 0;  // that failed
    std::unique_ptr<exact_volume> m_volume;
    warm_directories m_directories;
    exact_messages m_unheard;
    std::deque<expected_line> m_expected;
    std::uint64_t m_seen = 0;   // the last line that was taken
    unsigned m_calm_lines = 0;  // in a row, of which all was in memory
};

}  // namespace quarry::exact
