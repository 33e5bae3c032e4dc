// One copy as one line of evidence: what was asked, found, read and written, as JSON.
//
// A manifest is a file of such lines, each a JSON object in UTF-8 (docs/manifest.schema.json describes it).
// Every line has every member, with null where nothing is known: a script asks `.volume.serial` of a copy
// that failed as of one that is complete. Numbers are numbers, times text as RFC 3339 has it, names of the
// volume in the canonical form that -src takes back.
#pragma once

#include "exact/exact_volume.h"
#include "exact/failure.h"
#include "frontend/exact/object_facts.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quarry::exact {

// What every line of a manifest begins with, whatever its version.
inline constexpr std::string_view manifest_start = "{\"schema\":\"quarry-manifest/";
inline constexpr std::string_view manifest_schema = "quarry-manifest/1";

// The longest line that is written and read, in bytes without its line feed.
inline constexpr std::size_t longest_manifest_line = 0x1000000;

// The same for all copies of a run.
struct run_facts {
    std::int64_t started = 0;  // seconds since 1970
    std::string host;
    std::string directory;  // in which the run was started; empty if it is not known
    std::vector<std::string> arguments;
};

struct source_file {
    std::string path;                                  // as typed
    std::optional<std::uint64_t> size = std::nullopt;  // bytes; nothing if it cannot be opened
};

struct source_facts {
    std::string kind;  // "image", "ewf", "partition", "vmdk"
    std::vector<source_file> files;
    std::optional<std::uint32_t> sector_size = std::nullopt;  // bytes, as the source itself has it
    std::optional<bool> mounted = std::nullopt;
    // Digests of the whole source, noted beside its first file: those that an EWF image stores, and the one
    // that the user knows. Small hexadecimal digits, empty if there are none.
    std::string acquired_md5 = {};
    std::string acquired_sha1 = {};
    std::string sha256_told = {};
};

struct copy_facts {
    std::string path;  // as messages have it
    std::uint64_t size = 0;
    std::string md5;  // digits; empty if it was not asked for
    std::string sha256;
    bool sparse = false;
};

struct manifest_entry {
    const run_facts& run;
    const source_facts& source;
    const exact_volume* volume = nullptr;              // null if it could not be opened
    std::optional<std::uint64_t> line = std::nullopt;  // of the list
    std::int64_t finished = 0;                         // seconds since 1970
    std::string_view outcome = {};                     // "complete", "in doubt", "failed"
    const failure* error = nullptr;
    std::vector<notice> warnings = {};
    object_facts object = {};
    std::optional<copy_facts> copy = std::nullopt;
};

// 16 hexadecimal digits in capitals.
[[nodiscard]] std::string serial_text(std::uint64_t serial);

// The line, with a line feed at its end and none before.
[[nodiscard]] std::string manifest_line(const manifest_entry& entry);

}  // namespace quarry::exact
