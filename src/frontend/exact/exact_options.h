// The command line of the exact mode, read strictly.
//
// Every word is an option of the table or the value of one. An option that is given twice, a value that is
// missing or is itself an option, a number with anything after it, two sources or two objects: each of them
// is refused, in words that say what to do, before anything is opened. What comes out is one constant value;
// the rest of the mode reads it and nothing else of the command line.
#pragma once

#include "disk/source.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <tl/expected.hpp>
#include <variant>
#include <vector>

namespace quarry::exact {

struct listing_option;

// What is read: the paths as typed, in whatever encoding. A chain of virtual disk files has several.
struct source_choice {
    source_kind kind = source_kind::image;
    std::vector<std::string> paths;
};

struct object_by_path {
    std::string text;  // as typed, in canonical or Windows form
};

struct object_by_entry {
    std::uint64_t entry = 0;
    std::optional<std::uint16_t> sequence;
    std::string stream;  // ":name" or ":name:$TYPE" as typed; empty for the unnamed data
    // Of an entry that comes out of a listing the names of the path that it has there, from the root down, in
    // units; "?" first where the way is lost.
    std::optional<std::vector<std::u16string>> listed = {};
};

struct object_by_clusters {
    std::uint64_t lcn = 0;
    std::uint64_t count = 1;  // clusters
};

// What is listed in place of a copy: a row of the table of listings, and the path as typed.
struct asked_listing {
    const listing_option* kind = nullptr;  // never null
    std::string path;
};

using copy_object = std::variant<object_by_path, object_by_entry, object_by_clusters>;

struct exact_options {
    source_choice source;
    std::optional<std::uint64_t> offset;       // bytes; no partition table is asked
    std::optional<std::uint64_t> ntfsvol;      // counted from 1
    std::optional<std::uint32_t> sector_size;  // bytes, for the partition table
    std::optional<copy_object> object;         // empty only where nothing is copied, and with `pipe`
    std::optional<asked_listing> listing;      // print it; no copy
    std::vector<std::string> letters;          // "C" or "Volume{GUID}"
    std::string destination;                   // a file, or a directory with "/" at its end
    std::string log_path;                      // empty: no log
    std::string manifest_path;                 // empty: no manifest
    std::optional<unsigned> threads;           // workers, 1 to 64; as many as there are cores, up to 4
    std::string source_sha256;  // 64 small hexadecimal digits that the user knows; empty if not given
    bool help = false;
    bool volumes = false;        // print them; no copy
    bool verify_source = false;  // hold the source against its digests; no copy
    bool recurse = false;        // with `listing`: all names below it too
    bool deleted = false;        // with `listing`: the deleted files of the volume instead
    bool pipe = false;           // the objects are the lines of standard input
    bool tree = false;           // below the destination, the directories of the path too
    bool raw = false;
    bool zero_unreadable = false;
    bool sparse = false;
    bool overwrite = false;
    bool keep_times = false;
    bool md5 = false;
    bool sha256 = false;  // asked for, or because of a manifest
    bool resume = false;  // copies that the manifest has already are kept
    bool quiet = false;
};

// Why a command line is not carried out: what follows "err: ".
struct refusal {
    std::string text;
};

// True if a word of the arguments asks for the exact mode. The first word is the program's name.
[[nodiscard]] bool asks_for_exact_mode(const std::vector<std::string>& arguments);

// True if a word of the arguments asks for a listing: standard output belongs to its lines then.
[[nodiscard]] bool asks_for_listing(const std::vector<std::string>& arguments);

// Reads the arguments, of which the first is the program's name. Fails with the first rule that is broken,
// in the order of the words, then in the order of the rules. A request for help is granted whatever else
// there is, but not where the value of another option is missing.
[[nodiscard]] tl::expected<exact_options, refusal> parse_exact_options(
    const std::vector<std::string>& arguments);

// A decimal number, or "0x" and hexadecimal digits, with nothing before or after; at most 64 bits.
[[nodiscard]] std::optional<std::uint64_t> exact_number(std::string_view text);

// "N" or "N-SEQ" as such numbers; nothing for any other text.
[[nodiscard]] std::optional<object_by_entry> parse_entry(std::string_view text);

}  // namespace quarry::exact
