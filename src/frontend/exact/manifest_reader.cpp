#include "frontend/exact/manifest_reader.h"

#include "exact/name_text.h"
#include "foundation/descriptor_io.h"
#include "foundation/sha256.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <nlohmann/json.hpp>
#include <unistd.h>
#include <vector>

namespace quarry::exact {

namespace {

using json = nlohmann::json;

constexpr std::size_t block_size = 0x100000;

// Everything that a key is made of, each with its length, so that two lists of parts never agree by chance.
class key_maker {
  public:
    key_maker() { sha256_init(&m_digest); }
    void add(std::string_view part) {
        const std::string length = std::to_string(part.size()) + ":";
        sha256_update(&m_digest, length.data(), length.size());
        sha256_update(&m_digest, part.data(), part.size());
    }
    void add(std::uint64_t number) { add(std::to_string(number)); }
    [[nodiscard]] copy_key key() {
        sha256_digest digest{};
        sha256_final(digest, &m_digest);
        copy_key key{};
        std::copy_n(digest.begin(), key.size(), key.begin());
        return key;
    }

  private:
    sha256_ctx m_digest;
};

// More than the arguments of a run, the files of a source and the names of a file can be. Each value takes up
// to 50 times the memory that it takes in the line.
constexpr std::size_t most_values = 0x80000;

// The members of a line by which a copy is known; ranges that could not be read and the like are not kept.
// More than most_values of them are no line of a manifest, and give no object.
json parsed_line(std::string_view text) {
    constexpr std::array<const char*, 7> wanted = {"schema", "run",    "result", "source",
                                                   "volume", "object", "copy"};
    std::size_t values = 0;
    bool is_wanted = true;
    const auto keeps = [&](int depth, json::parse_event_t event, json& parsed) {
        if (event == json::parse_event_t::key && depth == 1) {
            is_wanted = std::find(wanted.begin(), wanted.end(), parsed) != wanted.end();
            return is_wanted;
        }
        return depth == 0 ? values <= most_values : is_wanted && ++values <= most_values;
    };
    return json::parse(text, keeps, false);
}

// A member of an object of the line; null for one that is not there.
const json& member(const json& object, const char* name) {
    static const json nothing;
    const auto found = object.is_object() ? object.find(name) : object.end();
    return object.is_object() && found != object.end() ? *found : nothing;
}

std::optional<std::string> bytes_of_digits(const std::string& digits) {
    std::string bytes;
    const auto value = [](char digit) { return digit <= '9' ? digit - '0' : digit - 'a' + 10; };
    const bool is_hexadecimal = std::all_of(digits.begin(), digits.end(), [](char digit) {
        return (digit >= '0' && digit <= '9') || (digit >= 'a' && digit <= 'f');
    });
    if (!is_hexadecimal || digits.size() % 2 != 0) {
        return std::nullopt;
    }
    for (std::size_t i = 0; i < digits.size(); i += 2) {
        bytes.push_back(static_cast<char>(value(digits[i]) * 16 + value(digits[i + 1])));
    }
    return bytes;
}

// What a user typed or the host calls a file, to the byte.
std::optional<std::string> typed_of(const json& object, const std::string& name) {
    const json& bytes = member(object, (name + "_bytes").c_str());
    if (bytes.is_string()) {
        return bytes_of_digits(bytes.get<std::string>());
    }
    const json& text = member(object, name.c_str());
    return text.is_string() ? std::optional(text.get<std::string>()) : std::nullopt;
}

std::optional<std::string> path_of(const json& object) {
    return typed_of(object, "path");
}

// A path from the root on, without "." and doubled separators, so that one file typed in two ways is one.
// ".." stays: a link may be before it.
std::string whole_path(const std::string& directory, const std::string& path) {
    const std::string typed = path.starts_with('/') ? path : directory + "/" + path;
    std::string whole;
    for (std::size_t begin = 0; begin < typed.size();) {
        const std::size_t end = std::min(typed.find('/', begin), typed.size());
        const std::string_view name = std::string_view(typed).substr(begin, end - begin);
        if (!name.empty() && name != ".") {
            whole.append("/").append(name);
        }
        begin = end + 1;
    }
    return whole;
}

copy_key key_of_path(const std::string& directory, const std::string& path) {
    key_maker maker;
    maker.add(whole_path(directory, path));
    return maker.key();
}

// Adds numbers and texts of the line in the order in which key_of_copy has them; false if one is missing.
class line_parts {
  public:
    line_parts(key_maker& maker, const json& line, const std::string& directory)
        : m_maker(maker), m_line(line), m_directory(directory) {}

    [[nodiscard]] bool add_source() {
        const json& files = member(member(m_line, "source"), "files");
        if (!files.is_array()) {
            return false;
        }
        m_maker.add(files.size());
        for (const char* const digest : {"acquired_md5", "acquired_sha1", "sha256_told"}) {
            m_maker.add(files.empty() ? std::string() : text_of(member(files.front(), digest)).value_or(""));
        }
        return std::all_of(files.begin(), files.end(), [this](const json& file) {
            return add_path(path_of(file)) && add_number(member(file, "size"));
        });
    }
    [[nodiscard]] bool add_volume() {
        return add_number(member(member(m_line, "source"), "volume_offset")) &&
               add_text(text_of(member(member(m_line, "volume"), "serial")));
    }
    [[nodiscard]] bool add_object() {
        const json& object = member(m_line, "object");
        if (!member(object, "raw").is_boolean()) {
            return false;
        }
        m_maker.add(member(object, "raw").get<bool>() ? "raw" : "");
        if (member(object, "lcn").is_number_unsigned()) {
            m_maker.add("clusters");
            return add_number(member(object, "lcn")) && add_number(member(object, "clusters"));
        }
        m_maker.add("entry");
        return add_number(member(object, "entry")) && add_number(member(object, "sequence")) &&
               add_text(text_of(member(object, "type"))) && add_text(text_of(member(object, "stream")));
    }
    [[nodiscard]] bool add_path(const std::optional<std::string>& path) {
        return add_text(path ? std::optional(whole_path(m_directory, *path)) : std::nullopt);
    }

  private:
    [[nodiscard]] bool add_text(const std::optional<std::string>& text) {
        if (text) {
            m_maker.add(*text);
        }
        return text.has_value();
    }
    [[nodiscard]] static std::optional<std::string> text_of(const json& value) {
        return value.is_string() ? std::optional(value.get<std::string>()) : std::nullopt;
    }
    [[nodiscard]] bool add_number(const json& value) {
        if (value.is_number_unsigned()) {
            m_maker.add(value.get<std::uint64_t>());
        }
        return value.is_number_unsigned();
    }

    key_maker& m_maker;
    const json& m_line;
    const std::string& m_directory;
};

tl::unexpected<failure> broken(const std::string& where, std::uint64_t number, const char* why) {
    return fail(failure_code::manifest, where, "line " + std::to_string(number) + " " + why);
}

}  // namespace

std::optional<copy_key> key_of_copy(const source_facts& source, const exact_volume* volume,
                                    const object_facts& object, const std::string& directory,
                                    const std::string& path) {
    const bool is_known = object.lcn ? object.clusters.has_value() : object.entry && object.stream;
    if (volume == nullptr || !is_known) {
        return std::nullopt;
    }
    key_maker maker;
    maker.add(source.files.size());
    for (const std::string& digest : {source.acquired_md5, source.acquired_sha1, source.sha256_told}) {
        maker.add(digest);
    }
    for (const source_file& file : source.files) {
        if (!file.size) {
            return std::nullopt;
        }
        maker.add(whole_path(directory, file.path));
        maker.add(*file.size);
    }
    maker.add(volume->shape().volume_offset);
    maker.add(serial_text(volume->shape().serial));
    maker.add(object.raw ? "raw" : "");
    if (object.lcn) {
        maker.add("clusters");
        maker.add(*object.lcn);
        maker.add(*object.clusters);
    } else {
        maker.add("entry");
        maker.add(object.entry->self.entry);
        maker.add(object.entry->self.sequence);
        maker.add(type_name(object.stream->type));
        maker.add(shown_name(object.stream->name));
    }
    maker.add(whole_path(directory, path));
    return maker.key();
}

bool complete_copies::add_line(std::string_view text) {
    const json line = parsed_line(text);
    if (!line.is_object()) {
        return false;
    }
    const json& copy = member(line, "copy");
    const std::optional<std::string> path = path_of(copy);
    if (member(line, "schema") != manifest_schema || !path) {
        return true;
    }
    const std::string directory = typed_of(member(line, "run"), "directory").value_or(std::string());
    const copy_key place = key_of_path(directory, *path);
    m_held.erase(place);
    key_maker maker;
    line_parts parts(maker, line, directory);
    if (member(line, "result") == "complete" && member(copy, "size").is_number_unsigned() &&
        parts.add_source() && parts.add_volume() && parts.add_object() && parts.add_path(path)) {
        m_held[place] = {maker.key(), member(copy, "size").get<std::uint64_t>()};
    }
    return true;
}

std::optional<std::uint64_t> complete_copies::size_of(const copy_key& key, const std::string& directory,
                                                      const std::string& path) const {
    const auto found = m_held.find(key_of_path(directory, path));
    return found == m_held.end() || found->second.key != key ? std::nullopt
                                                             : std::optional(found->second.size);
}

result<complete_copies> complete_copies::read(int descriptor, const std::string& where) {
    complete_copies copies;
    std::vector<char> block(block_size);
    std::string line;
    std::uint64_t number = 1;
    ::off_t offset = 0;
    while (true) {
        const ::ssize_t came =
            uninterrupted([&] { return ::pread(descriptor, block.data(), block.size(), offset); });
        if (came < 0) {
            return fail(failure_code::manifest, where, std::strerror(errno));
        }
        if (came == 0) {
            return copies;
        }
        offset += came;
        std::string_view rest(block.data(), static_cast<std::size_t>(came));
        while (!rest.empty()) {
            const std::size_t end = rest.find('\n');
            line.append(rest.substr(0, end));
            if (line.size() > longest_manifest_line) {
                return broken(where, number, "is too long");
            }
            if (end == std::string_view::npos) {
                break;
            }
            if (!copies.add_line(line)) {
                return broken(where, number, "is no JSON object");
            }
            line.clear();
            ++number;
            rest.remove_prefix(end + 1);
        }
    }
}

}  // namespace quarry::exact
