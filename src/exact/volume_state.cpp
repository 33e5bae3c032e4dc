#include "exact/volume_state.h"

#include "exact/attribute_set.h"
#include "exact/fixups.h"
#include "exact/name_text.h"
#include "volume/attribute_values.h"
#include "volume/well_known.h"

#include <algorithm>

namespace quarry::exact {

namespace {

constexpr std::uint64_t information_flags = 10;
constexpr std::size_t information_size = 12;
constexpr std::uint16_t dirty_flag = 1;

constexpr std::uint64_t smallest_page = 512;
constexpr std::uint64_t largest_page = 0x10000;
constexpr std::uint16_t no_client = 0xFFFF;
constexpr std::uint16_t clean_flag = 2;

bool is_known_version(std::uint8_t major, std::uint8_t minor) {
    return (major == 1 && minor == 2) || (major == 3 && minor <= 1);
}

result<attribute_set> system_file(const mft& table, std::uint64_t entry, notices& told) {
    return table.read_system(entry, told).and_then([&](record found) {
        return attribute_set::of(table, std::move(found), told);
    });
}

result<void> read_information(volume_state& state, const attribute_set& set) {
    result<std::optional<byte_view>> value = set.only_value(attr_volume_information);
    if (!value) {
        return passed_on(value);
    }
    if (!*value || (*value)->size() < information_size) {
        return fail(failure_code::layout, where::record(volume_entry), "has no whole $VOLUME_INFORMATION");
    }
    const volume_information_value information(**value);
    state.major_version = information.major_version();
    state.minor_version = information.minor_version();
    state.dirty = (information.bytes().u16_or_zero(information_flags) & dirty_flag) != 0;
    return {};
}

// One restart page as it lies in the journal.
struct restart_page {
    std::uint64_t page_size = 0;
    std::uint64_t sequence_number = 0;  // of the last write
    bool clean = false;
};

// Nothing if the page at `offset` is not sound.
std::optional<restart_page> read_restart_page(const mft& table, const stored_stream& journal,
                                              std::uint64_t offset) {
    std::vector<std::uint8_t> head(smallest_page);
    if (!journal.read(table.volume(), head, offset) || !byte_view(head).text_at(0, "RSTR")) {
        return std::nullopt;
    }
    restart_page page;
    page.page_size = byte_view(head).u32_or_zero(16);
    if (page.page_size < smallest_page || page.page_size > largest_page ||
        (page.page_size & (page.page_size - 1)) != 0) {
        return std::nullopt;
    }
    std::vector<std::uint8_t> whole(static_cast<std::size_t>(page.page_size));
    if (!journal.read(table.volume(), whole, offset) || !restore_fixups(whole, {"restart page", {}})) {
        return std::nullopt;
    }
    const byte_view bytes(whole);
    const std::optional<byte_view> area = bytes.sub(bytes.u16_or_zero(24), 16);
    if (!area) {
        return std::nullopt;
    }
    page.sequence_number = area->u64_or_zero(0);
    page.clean = area->u16_or_zero(12) == no_client || (area->u16_or_zero(14) & clean_flag) != 0;
    return page;
}

// The second page lies at the size of a page. If the first one does not say it, at each size there is.
std::optional<restart_page> read_second_page(const mft& table, const stored_stream& journal,
                                             const std::optional<restart_page>& first) {
    if (first) {
        return read_restart_page(table, journal, first->page_size);
    }
    for (std::uint64_t size = smallest_page; size <= largest_page; size *= 2) {
        std::optional<restart_page> second = read_restart_page(table, journal, size);
        if (second && second->page_size == size) {
            return second;
        }
    }
    return std::nullopt;
}

// Whether the bytes of the journal from `begin` to `end` are all 0xFF, as they are where nothing was written
// yet.
bool is_blank(const mft& table, const stored_stream& journal, std::uint64_t begin, std::uint64_t end) {
    constexpr std::uint64_t bytes_of_a_read = 0x8000;
    std::vector<std::uint8_t> block;
    for (std::uint64_t at = begin; at < end; at += block.size()) {
        block.resize(static_cast<std::size_t>(std::min(end - at, bytes_of_a_read)));
        // Each byte is the one before it: a comparison that the library makes many bytes at a time. Journals
        // that were never used have up to 64 MiB.
        if (!journal.read(table.volume(), block, at) || block.front() != 0xFF ||
            !std::equal(block.begin() + 1, block.end(), block.begin())) {
            return false;
        }
    }
    return end > 0;
}

// The bytes in which both restart pages lie, whatever their size.
std::uint64_t end_of_restart_pages(const stored_stream& journal) {
    return std::min(journal.size(), 2 * largest_page);
}

// One of more than 1 GiB, which no system makes, is judged by its first bytes.
std::uint64_t end_of_blank_journal(const stored_stream& journal) {
    return std::min(journal.size(), std::uint64_t{1} << 30);
}

result<stored_stream> open_journal(const mft& table, notices& told) {
    return system_file(table, journal_entry, told).and_then([&](const attribute_set& set) {
        return set.stored(table.volume().shape(), attr_data, {});
    });
}

tl::unexpected<failure> no_restart_page() {
    return fail(failure_code::layout, where::record(journal_entry), "$LogFile has no sound restart page");
}

void warn_of_unknown_journal(const failure& why, notices& told) {
    told.warn("journal", why.where, why.why + "; the state of the journal is unknown");
}

result<journal_state> read_journal(const mft& table, notices& told) {
    result<stored_stream> journal = open_journal(table, told);
    if (!journal) {
        return passed_on(journal);
    }
    if (is_blank(table, *journal, 0, end_of_restart_pages(*journal))) {
        return journal_state::empty;
    }
    const std::optional<restart_page> first = read_restart_page(table, *journal, 0);
    const std::optional<restart_page> second = read_second_page(table, *journal, first);
    if (!first && !second) {
        return no_restart_page();
    }
    const bool second_counts = !first || (second && second->sequence_number > first->sequence_number);
    return (second_counts ? *second : *first).clean ? journal_state::clean : journal_state::not_clean;
}

}  // namespace

std::string_view journal_text(journal_state state) {
    switch (state) {
        case journal_state::clean:
            return "clean";
        case journal_state::not_clean:
            return "not clean";
        case journal_state::empty:
            return "empty";
        default:
            return "unknown";
    }
}

std::string volume_state::version_text() const {
    return major_version ? std::to_string(*major_version) + "." + std::to_string(*minor_version) : "unknown";
}

volume_state read_volume_state(const mft& table, notices& told) {
    volume_state state;
    const result<void> information =
        system_file(table, volume_entry, told).and_then([&](const attribute_set& set) {
            if (const auto label = set.only_value(attr_volume_name); label && *label) {
                state.label = units_of_bytes(**label);
            }
            return read_information(state, set);
        });
    if (!information) {
        told.warn("volume-information", information.error().where, information.error().why);
    } else if (!is_known_version(*state.major_version, *state.minor_version)) {
        told.warn("version", where::volume, "has version " + state.version_text());
    }
    if (state.dirty.value_or(false)) {
        told.warn("dirty", where::volume, "is marked dirty");
    }
    if (result<journal_state> journal = read_journal(table, told)) {
        state.journal = *journal;
        if (state.journal == journal_state::not_clean) {
            told.warn("journal", "journal",
                      "was not closed; what the system would replay is not in the copy");
        }
    } else {
        warn_of_unknown_journal(journal.error(), told);
    }
    return state;
}

void check_empty_journal(volume_state& state, const mft& table, notices& told) {
    if (state.journal != journal_state::empty) {
        return;
    }
    const result<void> checked = open_journal(table, told).and_then([&](const stored_stream& journal) {
        const bool blank =
            is_blank(table, journal, end_of_restart_pages(journal), end_of_blank_journal(journal));
        return blank ? result<void>() : no_restart_page();
    });
    if (!checked) {
        state.journal = journal_state::unknown;
        warn_of_unknown_journal(checked.error(), told);
    }
}

}  // namespace quarry::exact
