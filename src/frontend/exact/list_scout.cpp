#include "frontend/exact/list_scout.h"

#include "frontend/exact/copy_object.h"

#include <algorithm>
#include <array>
#include <utility>

namespace quarry::exact {

namespace {

// What the volume itself needs may have to be fetched first.
constexpr int most_openings = 16;
// A line is looked at again so many lines later.
constexpr std::uint64_t lines_between_tries = 4;
// After so many lines of which all was in memory, one in so many is looked at.
constexpr unsigned calm = 16;
constexpr std::uint64_t lines_between_calm_ones = 16;
// Of the stream of one line: 32 lines have 4 MiB.
constexpr std::uint64_t most_bytes_of_line = 0x20000;
constexpr std::size_t most_runs_of_line = 64;

}  // namespace

list_scout::list_scout(byte_source& source, const exact_volume& volume, const exact_options& options)
    : m_source(source), m_copied_from(&volume), m_options(&options) {}

void list_scout::look_ahead(std::uint64_t number, const list_lines& lines) {
    if (!open()) {
        return;
    }
    while (!m_expected.empty() && m_expected.front().number <= number) {
        m_expected.pop_front();
    }
    take_lines(number, lines);
    for (expected_line& each : m_expected) {
        if (!each.done && (!each.tried || (each.number - number) % lines_between_tries == 0)) {
            go_on(each);
        }
    }
}

// A volume of its own, over what is in memory. The tables that a volume remembers, and whether they can be
// read, must be there at once.
bool list_scout::open() {
    if (m_volume || m_openings == most_openings) {
        return m_volume != nullptr;
    }
    ++m_openings;
    notices unheard;
    const std::uint64_t offset = m_copied_from->shape().volume_offset;
    auto opened = exact_volume::open(m_source, m_copied_from->source().path(), offset,
                                     m_source.size() - offset, unheard);
    if (opened && (*opened)->upper_case(unheard) && (*opened)->bitmap(unheard)) {
        m_volume = std::move(*opened);
    }
    return m_volume != nullptr;
}

void list_scout::take_lines(std::uint64_t number, const list_lines& lines) {
    for (const list_lines::line& each : lines.at_hand(std::max(m_seen, number), number + lines_ahead)) {
        m_seen = each.number;
        if (m_calm_lines >= calm && each.number % lines_between_calm_ones != 0) {
            continue;
        }
        if (auto object = parse_list_line(each.text)) {
            m_expected.push_back({each.number, std::move(*object)});
        }
    }
}

void list_scout::go_on(expected_line& line) {
    const std::uint64_t misses = m_source.misses();
    const bool first_try = !std::exchange(line.tried, true);
    notices unheard;
    const auto found = find_object(*m_volume, m_directories, *m_options, line.object, m_unheard, unheard);
    bool in_memory = m_source.misses() == misses;
    // A failure that is none of memory is one of the line, which the copy will report.
    line.done = in_memory;
    if (found) {
        const auto& packed = found->content->system_compressed();
        const stored_stream& content = packed && !m_options->raw ? packed->stored : found->content->stored();
        if (content.runs().runs().size() <= most_runs_of_line) {
            (void)(*m_volume).bitmap(unheard)->of(content.runs());
        }
        line.done = m_source.misses() == misses;
        in_memory = announce_start(content) && line.done;
    }
    if (first_try) {
        m_calm_lines = in_memory ? m_calm_lines + 1 : 0;
    }
}

bool list_scout::announce_start(const stored_stream& content) {
    const auto& runs = content.runs().runs();
    if (runs.empty() || runs.front().is_hole() || content.valid_size() == 0 || m_options->resume) {
        return true;
    }
    std::array<std::uint8_t, 1> first{};
    if (m_source.read_from_memory(first, m_volume->shape().source_byte_of(runs.front().lcn))) {
        return true;
    }
    content.announce(m_volume->bytes(), 0, most_bytes_of_line);
    return false;
}

}  // namespace quarry::exact
