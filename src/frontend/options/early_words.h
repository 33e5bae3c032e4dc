// The options of the default mode that are looked up before those of the source.
//
// An option takes itself and its value off the command line, so which word a source option gets as its value
// depends on all that were looked up before it. The look ahead for files to protect goes by these tables, and
// the exact mode, which refuses most of these options, says what to do instead.
#pragma once

#include <array>
#include <cstddef>
#include <string_view>

namespace quarry {

inline constexpr std::string_view no_effect_in_exact_mode = "it has no effect";
inline constexpr std::string_view choose_lines_in_exact_mode = "choose the lines before -pipe, with grep";

struct early_word {
    std::string_view word;
    std::size_t values = 0;  // words after it that belong to it
    // What the exact mode, which does not take this option, says to do instead; empty if it takes it.
    std::string_view exact_hint = {};
};

inline constexpr auto early_words = std::to_array<early_word>({
    {"-pair_datetime", 0, no_effect_in_exact_mode},
    {"-append", 0, "a copy is a file of its own"},
    {"-l2", 0, no_effect_in_exact_mode},
    {"-l3", 0, no_effect_in_exact_mode},
    {"-profile", 0, no_effect_in_exact_mode},
    {"-pipe", 0},
    {"-base10", 0, no_effect_in_exact_mode},
    {"-base16", 0, no_effect_in_exact_mode},
    {"-verbose", 0, no_effect_in_exact_mode},
    {"-v", 0, no_effect_in_exact_mode},
    {"-quiet", 0},
    {"-first_ntfsvol", 0},
    {"-meta", 0, "say -manifest"},
    {"-skip_sparse_clusters", 0, "say -sparse"},
    {"-md5", 0},
    {"-raw", 0},
    {"-diags", 1},
    {"-out", 1, "say -dst"},
    {"-outfile", 1, "say -dst"},
    {"-enumdir", 1, choose_lines_in_exact_mode},
    {"-num_subdirs", 1, choose_lines_in_exact_mode},
    {"-filter_skip", 1, choose_lines_in_exact_mode},
    {"-filter", 1, choose_lines_in_exact_mode},
    {"-filter_path", 1, choose_lines_in_exact_mode},
    {"-filter_sig", 1, choose_lines_in_exact_mode},
    {"-cmd_start_time", 1, choose_lines_in_exact_mode},
    {"-cmd_stop_time", 1, choose_lines_in_exact_mode},
    {"-dateformat", 1, no_effect_in_exact_mode},
    {"-timeformat", 1, no_effect_in_exact_mode},
    {"-signal", 1, no_effect_in_exact_mode},
});

// Those that are accepted and have no meaning here. Scripts pass them to a whole family of tools.
inline constexpr auto ignored_words = std::to_array<early_word>({
    {"-csv", 0, no_effect_in_exact_mode},
    {"-csvgen", 0, no_effect_in_exact_mode},
    {"-csvl2t", 0, no_effect_in_exact_mode},
    {"-bodyfile", 0, no_effect_in_exact_mode},
    {"-xml", 0, no_effect_in_exact_mode},
    {"-multiline", 0, no_effect_in_exact_mode},
    {"-csv_separator", 1, no_effect_in_exact_mode},
    {"-enable_quoted_csv_fields", 0, no_effect_in_exact_mode},
    {"-no_whitespace", 0, no_effect_in_exact_mode},
    {"-alias", 1, no_effect_in_exact_mode},
    {"-aliaspath", 1, no_effect_in_exact_mode},
    {"-gzip", 0, no_effect_in_exact_mode},
    {"-zlib", 0, no_effect_in_exact_mode},
    {"-zlibex", 0, no_effect_in_exact_mode},
    {"-threads", 1},
    {"-hostname", 1, no_effect_in_exact_mode},
    {"-username", 1, no_effect_in_exact_mode},
    {"-split_pathfile", 0, no_effect_in_exact_mode},
    {"-cpu", 0, no_effect_in_exact_mode},
    {"-cpuinst", 0, no_effect_in_exact_mode},
    {"-fragment_files", 0, no_effect_in_exact_mode},
    {"-separate_files", 0, no_effect_in_exact_mode},
    {"-outdir", 1, no_effect_in_exact_mode},
});

}  // namespace quarry
