#include "frontend/exact/option_table.h"

#include "foundation/edit_distance.h"
#include "foundation/ql_string.h"
#include "frontend/options/early_words.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <string>

namespace quarry::exact {

namespace {

constexpr option_state taken = option_state::taken;

constexpr option_row row(std::string_view name, option id, unsigned values, option_state state,
                         bool repeatable = false) {
    return {name, id, values, state, repeatable};
}

constexpr option_row foreign(std::string_view name, std::string_view hint) {
    return {.name = name, .hint = hint};
}

constexpr option_row row_of_source(const source_option& source) {
    if (!source.exact_hint.empty()) {
        return foreign(source.word, source.exact_hint);
    }
    return {.name = source.word,
            .id = source.kind == source_kind::partition ? option::volume_source : option::disk_source,
            .values = 1,
            .state = taken,
            .repeatable = source.value == source_value::files,
            .source = &source};
}

constexpr option_row row_of_listing(const listing_option& listing) {
    return {.name = listing.word, .id = option::listing, .values = 1, .state = taken, .listing = &listing};
}

constexpr auto other_rows = std::to_array<option_row>({
    row("-exact", option::exact, 0, taken),
    row("-h", option::help, 0, taken),
    row("-help", option::help, 0, taken),
    row("--help", option::help, 0, taken),
    row("-offset", option::offset, 1, taken),
    row("-ntfsvol", option::ntfsvol, 1, taken),
    row("-first_ntfsvol", option::first_ntfsvol, 0, taken),
    row("-volumes", option::volumes, 0, taken),
    row("-recurse", option::recurse, 0, taken),
    row("-deleted", option::deleted, 0, taken),
    row("-sector_size", option::sector_size, 1, taken),
    row("-src", option::src, 1, taken),
    row("-mft", option::mft, 1, taken),
    row("-cluster", option::cluster, 1, taken),
    row("-pipe", option::pipe, 0, taken),
    row("-letter", option::letter, 1, taken, true),
    row("-dst", option::dst, 1, taken),
    row("-tree", option::tree, 0, taken),
    row("-raw", option::raw, 0, taken),
    row("-zero_unreadable", option::zero_unreadable, 0, taken),
    row("-sparse", option::sparse, 0, taken),
    row("-overwrite", option::overwrite, 0, taken),
    row("-keep_times", option::keep_times, 0, taken),
    row("-md5", option::md5, 0, taken),
    row("-sha256", option::sha256, 0, taken),
    row("-verify_source", option::verify_source, 0, taken),
    row("-source_sha256", option::source_sha256, 1, taken),
    row("-manifest", option::manifest, 1, taken),
    row("-resume", option::resume, 0, taken),
    row("-threads", option::threads, 1, taken),
    row("-diags", option::diags, 1, taken),
    row("-quiet", option::quiet, 0, taken),

    foreign("-ignore_image_size", "it is not needed"),
});

constexpr bool is_refused(const early_word& option) {
    return !option.exact_hint.empty();
}

constexpr std::size_t refused_words = std::count_if(early_words.begin(), early_words.end(), is_refused) +
                                      std::count_if(ignored_words.begin(), ignored_words.end(), is_refused);

constexpr auto rows = [] {
    std::array<option_row, source_options.size() + listing_options.size() + other_rows.size() + refused_words>
        all{};
    auto* end = std::transform(source_options.begin(), source_options.end(), all.begin(), row_of_source);
    end = std::transform(listing_options.begin(), listing_options.end(), end, row_of_listing);
    end = std::copy(other_rows.begin(), other_rows.end(), end);
    const auto add_refused = [&end](const early_word& option) {
        if (is_refused(option)) {
            *end++ = foreign(option.word, option.exact_hint);
        }
    };
    std::for_each(early_words.begin(), early_words.end(), add_refused);
    std::for_each(ignored_words.begin(), ignored_words.end(), add_refused);
    return all;
}();

constexpr std::size_t most_edits = 2;

constexpr char lowered(char letter) {
    return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

bool equal_in_any_case(std::string_view left, std::string_view right) {
    return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                      [](char a, char b) { return lowered(a) == lowered(b); });
}

bool lengths_are_near(std::string_view left, std::string_view right) {
    return std::max(left.size(), right.size()) - std::min(left.size(), right.size()) <= most_edits;
}

}  // namespace

std::span<const option_row> option_rows() {
    return rows;
}

const option_row* find_option(std::string_view word) {
    const auto* const found = std::find_if(rows.begin(), rows.end(), [word](const option_row& row) {
        return equal_in_any_case(row.name, word);
    });
    return found == rows.end() ? nullptr : found;
}

const option_row* nearest_option(std::string_view word) {
    std::string typed(word);
    lower_narrow(typed);
    const option_row* nearest = nullptr;
    std::size_t least = most_edits + 1;
    for (const option_row& row : rows) {
        if (row.state == option_state::refused || !lengths_are_near(row.name, word)) {
            continue;
        }
        const std::size_t edits = edit_distance(typed, row.name);
        // An option of which no letter is left is no guess.
        if (edits < least && edits + 1 < row.name.size()) {
            least = edits;
            nearest = &row;
        }
    }
    return nearest;
}

}  // namespace quarry::exact
