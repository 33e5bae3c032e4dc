// What every routine of the exact mode returns in place of a value that it cannot give.
//
// A failure has a code from a fixed list, the place in words, the reason, and the byte on the source where
// the reason lies, if it lies at one. The codes are promised to scripts; the words are for people. A notice
// is the same for what does not stop a copy: a warning, or a doubt.
//
//     err: record 40, $DATA "": torn: sector 1 ends in 0xA, ... (source byte 0x1A00)
//          \___ where ______/  \___ why ____________________/
//
// The text is made here and nowhere else.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <tl/expected.hpp>
#include <utility>
#include <vector>

namespace quarry::exact {

enum class failure_code : std::uint8_t {
    source_open,
    source_read,
    source_end,
    vmdk,
    table,
    no_volume,
    several_volumes,
    no_such_volume,
    enciphered,
    boot,
    mft,
    signature,
    array,
    torn,
    layout,
    unused,
    sequence,
    base,
    extension,
    behind_mft,
    list,
    duplicate,
    gap,
    runs,
    outside,
    sizes,
    flags,
    no_stream,
    directory,
    ambiguous,
    name,
    not_directory,
    index,
    index_order,
    upcase,
    link,
    tag,
    encrypted,
    unit,
    wof,
    exists,
    create,
    no_room,
    write,
    sync,
    rename,
    memory,
    manifest,
    fault,  // of the program
};

// The code as scripts see it, such as "source-read".
[[nodiscard]] std::string_view code_text(failure_code code);

struct failure {
    failure_code code;
    std::string where;
    std::string why;
    std::optional<std::uint64_t> source_byte;  // on the source, not on the volume

    // "WHERE: WHY", with " (source byte 0x...)" at the end where there is one.
    [[nodiscard]] std::string text() const;
};

template <typename Value>
using result = tl::expected<Value, failure>;

[[nodiscard]] inline tl::unexpected<failure> fail(failure_code code, std::string where, std::string why,
                                                  std::optional<std::uint64_t> source_byte = std::nullopt) {
    return tl::make_unexpected(failure{code, std::move(where), std::move(why), source_byte});
}

// Hands the failure of one result on as that of another.
template <typename Value>
[[nodiscard]] tl::unexpected<failure> passed_on(const result<Value>& failed) {
    return tl::make_unexpected(failed.error());
}

// What is said of a copy without stopping it. A doubt makes the copy one "in doubt".
struct notice {
    enum class weight : std::uint8_t { warning, doubt };
    enum weight weight = weight::warning;
    std::string code;  // such as "boot-backup"
    std::string where;
    std::string why;

    [[nodiscard]] std::string text() const { return where + ": " + why; }
};

// The notices of one copy, or of opening a volume, in the order in which they were made. Each is there once,
// and of those with one code only so many: a prepared disk can give cause for millions.
class notices {
  public:
    static constexpr std::size_t most_of_one_code = 100;

    void warn(std::string code, std::string where, std::string why);
    void doubt(std::string code, std::string where, std::string why);
    [[nodiscard]] const std::vector<notice>& all() const { return m_all; }
    [[nodiscard]] bool in_doubt() const;

  private:
    void add(notice added);
    std::vector<notice> m_all;
    std::set<std::string> m_known;
    std::map<std::string, std::size_t> m_of_code;
};

// The words of WHERE.
namespace where {
[[nodiscard]] std::string source(std::string_view path);
[[nodiscard]] std::string record(std::uint64_t entry);
[[nodiscard]] std::string record_of_mirror(std::uint64_t entry);
// `type` is a type code, `name` the stream's name as it is shown.
[[nodiscard]] std::string stream(std::uint64_t entry, std::uint32_t type, std::string_view name);
[[nodiscard]] std::string index_root(std::uint64_t entry);
[[nodiscard]] std::string index_block(std::uint64_t vcn, std::uint64_t entry);
[[nodiscard]] std::string path(std::string_view shown);
[[nodiscard]] std::string destination(std::string_view path);
// Appends ": unit U", ": chunk C", ": VCN V" to another place.
[[nodiscard]] std::string unit(std::string_view of, std::uint64_t unit);
[[nodiscard]] std::string chunk(std::string_view of, std::uint64_t chunk);
[[nodiscard]] std::string vcn(std::string_view of, std::uint64_t vcn);
inline constexpr const char* partition_table = "partition table";
inline constexpr const char* volume = "volume";
inline constexpr const char* boot_sector = "boot sector";
}  // namespace where

// "0x1A00": hexadecimal in capitals, as all texts of this mode have it.
[[nodiscard]] std::string hex(std::uint64_t number);

// The name of an attribute type, "$DATA" for 0x80; "type 0x1234" for one that has none.
[[nodiscard]] std::string type_name(std::uint32_t type);

}  // namespace quarry::exact
