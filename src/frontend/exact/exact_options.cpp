#include "frontend/exact/exact_options.h"

#include "exact/name_text.h"
#include "foundation/ql_text.h"
#include "foundation/worker_pool.h"
#include "frontend/exact/option_table.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <initializer_list>
#include <limits>
#include <span>

namespace quarry::exact {

namespace {

using status = tl::expected<void, refusal>;

// An option as it was given.
struct given_option {
    const option_row* row = nullptr;
    std::vector<std::string> values;
};

tl::unexpected<refusal> refuse(std::string text) {
    return tl::make_unexpected(refusal{std::move(text)});
}

std::string quoted(std::string_view typed) {
    return "\"" + shown_typed(typed) + "\"";
}

std::string named(std::string_view option_name, std::string_view value) {
    return std::string(option_name) + " " + quoted(value);
}

// ---- from words to options

bool asks_for_version(std::string_view word) {
    constexpr auto words = std::to_array<std::string_view>({"--version", "-version", "-ver"});
    return std::find(words.begin(), words.end(), word) != words.end();
}

refusal unknown_word(std::string_view word) {
    if (!word.starts_with('-')) {
        return {quoted(word) + " stands alone; a source is named with -src, an image with -image"};
    }
    const option_row* const near = nearest_option(word);
    const std::string refused = quoted(word) + " is no option; ";
    const std::size_t equals = word.find('=');
    const option_row* const begun =
        equals == std::string_view::npos ? nullptr : nearest_option(word.substr(0, equals));
    if (begun != nullptr && begun->values > 0) {
        return {refused + "did you mean " + std::string(begun->name) + " with its value as the next word?"};
    }
    if (near != nullptr) {
        return {refused + "did you mean " + std::string(near->name) + "?"};
    }
    return {refused + (asks_for_version(word) ? "-exact -h shows the version" : "-exact -h lists them")};
}

// The words from `first` on that belong to an option as its values.
tl::expected<std::vector<std::string>, refusal> values_of(const option_row& row,
                                                          std::span<const std::string> rest) {
    if (rest.size() < row.values) {
        return refuse(std::string(row.name) + " needs a value");
    }
    for (const std::string& value : rest.first(row.values)) {
        if (find_option(value) != nullptr) {
            return refuse(std::string(row.name) + " needs a value; " + quoted(value) + " is an option");
        }
    }
    std::vector<std::string> values(rest.begin(), rest.begin() + row.values);
    const bool has_count = row.id == option::cluster && rest.size() > row.values &&
                           !rest[row.values].empty() && rest[row.values].front() >= '0' &&
                           rest[row.values].front() <= '9';
    if (has_count) {
        values.push_back(rest[row.values]);
    }
    return values;
}

class given_options {
  public:
    [[nodiscard]] status take(std::span<const std::string> words) {
        while (!words.empty()) {
            const option_row* const row = find_option(words.front());
            if (row == nullptr) {
                return tl::make_unexpected(unknown_word(words.front()));
            }
            words = words.subspan(1);
            if (row->state == option_state::refused) {
                return refuse(std::string(row->name) +
                              " is not taken with -exact: " + std::string(row->hint));
            }
            if (!row->repeatable && has(*row)) {
                return refuse(std::string(row->name) + " is given twice");
            }
            auto values = values_of(*row, words);
            if (!values) {
                return tl::make_unexpected(values.error());
            }
            words = words.subspan(values->size());
            m_given.push_back({row, std::move(*values)});
        }
        return {};
    }

    [[nodiscard]] bool has(option id) const { return find(id) != nullptr; }

    // The option's place, the first of several. Null if it was not given.
    [[nodiscard]] const given_option* find(option id) const {
        const auto found = std::find_if(m_given.begin(), m_given.end(),
                                        [id](const given_option& given) { return given.row->id == id; });
        return found == m_given.end() ? nullptr : &*found;
    }

    [[nodiscard]] std::string value(option id) const {
        const given_option* const given = find(id);
        return given == nullptr ? std::string() : given->values.front();
    }

    [[nodiscard]] std::vector<std::string> all_values(option id) const {
        std::vector<std::string> all;
        for (const given_option& given : m_given) {
            if (given.row->id == id) {
                all.insert(all.end(), given.values.begin(), given.values.end());
            }
        }
        return all;
    }

    // Those of a few that were given, in the order of the command line.
    [[nodiscard]] std::vector<const given_option*> among(std::initializer_list<option> ids) const {
        std::vector<const given_option*> found;
        for (const given_option& given : m_given) {
            const bool listed = std::find(ids.begin(), ids.end(), given.row->id) != ids.end();
            const bool repeated =
                std::any_of(found.begin(), found.end(),
                            [&given](const given_option* other) { return other->row == given.row; });
            if (listed && !repeated) {
                found.push_back(&given);
            }
        }
        return found;
    }

  private:
    [[nodiscard]] bool has(const option_row& row) const {
        return std::any_of(m_given.begin(), m_given.end(),
                           [&row](const given_option& given) { return given.row == &row; });
    }

    std::vector<given_option> m_given;
};

// ---- rules about several options

std::string two_of(const std::vector<const given_option*>& given) {
    return std::string(given[0]->row->name) + " and " + std::string(given[1]->row->name) +
           " exclude each other";
}

status at_most_one_of(const given_options& given, std::initializer_list<option> ids) {
    const auto found = given.among(ids);
    return found.size() > 1 ? status(refuse(two_of(found))) : status();
}

// `subject` cannot be carried out beside any of the others.
status nothing_beside(const given_options& given, option subject, std::initializer_list<option> others) {
    const auto found = given.among(others);
    if (!given.has(subject) || found.empty()) {
        return {};
    }
    return refuse(two_of({given.find(subject), found.front()}));
}

status needs_one_of(const given_options& given, std::initializer_list<option> ids, std::string words) {
    return given.among(ids).empty() ? status(refuse(std::move(words))) : status();
}

// -src names an object of its own, unless it is the stream of an entry.
bool src_is_a_stream(const given_options& given) {
    return given.has(option::mft) && given.value(option::src).starts_with(':');
}

status check_object(const given_options& given) {
    if (given.has(option::src) && !given.has(option::mft) && given.value(option::src).starts_with(':')) {
        return refuse(named("-src", given.value(option::src)) + " is a stream; say -mft to name its entry");
    }
    if (given.has(option::mft) && given.has(option::src) && !src_is_a_stream(given)) {
        return refuse(two_of(given.among({option::src, option::mft})) +
                      "; a stream of an entry is -src :NAME");
    }
    return src_is_a_stream(given)
               ? at_most_one_of(given, {option::mft, option::cluster, option::pipe, option::listing})
               : at_most_one_of(given,
                                {option::src, option::mft, option::cluster, option::pipe, option::listing});
}

// What makes several files, or names of its own, cannot go to one file.
status needs_a_directory(const given_options& given, option subject) {
    const given_option* const option = given.find(subject);
    if (option == nullptr || given.value(quarry::exact::option::dst).ends_with('/')) {
        return {};
    }
    return refuse(std::string(option->row->name) + " needs a directory; say -dst DIR/");
}

// "-image, -partition or -vmdk"
std::string one_of(const std::vector<std::string_view>& words) {
    std::string text;
    for (const std::string_view& word : words) {
        const bool is_last = &word == &words.back();
        text += text.empty() ? "" : (is_last ? " or " : ", ");
        text += word;
    }
    return text;
}

std::string source_words() {
    std::vector<std::string_view> words;
    for (const source_option& option : source_options) {
        if (option.exact_hint.empty()) {
            words.insert(words.begin(), option.word);
        }
    }
    return one_of(words);
}

std::string listing_words() {
    std::vector<std::string_view> words;
    words.reserve(listing_options.size());
    for (const listing_option& option : listing_options) {
        words.push_back(option.word);
    }
    return one_of(words);
}

// A listing makes no copy, and says more or less only of what it lists.
status check_listing(const given_options& given) {
    for (const option id : {option::recurse, option::deleted}) {
        if (given.has(id) && !given.has(option::listing)) {
            return refuse(std::string(given.find(id)->row->name) + " needs " + listing_words());
        }
    }
    return at_most_one_of(given, {option::recurse, option::deleted}).and_then([&] {
        return nothing_beside(
            given, option::listing,
            {option::verify_source, option::dst, option::tree, option::raw, option::zero_unreadable,
             option::sparse, option::overwrite, option::keep_times, option::md5, option::sha256,
             option::source_sha256, option::manifest, option::resume, option::threads});
    });
}

// What is missing, and what cannot go together.
status check_combination(const given_options& given) {
    return at_most_one_of(given, {option::disk_source, option::volume_source})
        .and_then([&] {
            return needs_one_of(given, {option::disk_source, option::volume_source},
                                "no source; say " + source_words());
        })
        .and_then([&] {
            return at_most_one_of(given, {option::offset, option::ntfsvol, option::first_ntfsvol});
        })
        .and_then([&] {
            return nothing_beside(given, option::volume_source,
                                  {option::offset, option::ntfsvol, option::first_ntfsvol, option::volumes,
                                   option::sector_size});
        })
        .and_then([&] {
            return nothing_beside(
                given, option::volumes,
                {option::offset, option::ntfsvol, option::first_ntfsvol, option::src, option::mft,
                 option::cluster, option::pipe, option::listing, option::dst, option::tree});
        })
        .and_then([&] {
            return nothing_beside(
                given, option::verify_source,
                {option::volume_source, option::offset, option::ntfsvol, option::first_ntfsvol,
                 option::sector_size, option::volumes, option::src, option::mft, option::cluster,
                 option::pipe, option::listing, option::dst, option::tree});
        })
        .and_then([&] { return nothing_beside(given, option::offset, {option::sector_size}); })
        .and_then([&] { return check_object(given); })
        .and_then([&] { return check_listing(given); })
        .and_then([&] {
            return nothing_beside(
                given, option::cluster,
                {option::raw, option::keep_times, option::md5, option::letter, option::tree});
        })
        .and_then([&] {
            return needs_one_of(given,
                                {option::volumes, option::src, option::mft, option::cluster, option::pipe,
                                 option::listing, option::verify_source},
                                "nothing to copy; say -src, -mft, -cluster or -pipe");
        })
        .and_then([&] {
            return needs_one_of(given, {option::volumes, option::listing, option::verify_source, option::dst},
                                "no destination; say -dst");
        })
        .and_then([&]() -> status {
            if (given.value(option::dst) == "-") {
                return refuse("-dst \"-\": a copy never goes to standard output; a file of that name is ./-");
            }
            return {};
        })
        .and_then([&] { return needs_a_directory(given, option::pipe); })
        .and_then([&] { return needs_a_directory(given, option::tree); });
}

// ---- values

bool is_hexadecimal(char letter) {
    return (letter >= '0' && letter <= '9') || (letter >= 'A' && letter <= 'F') ||
           (letter >= 'a' && letter <= 'f');
}

unsigned digit_value(char letter) {
    if (letter >= '0' && letter <= '9') {
        return static_cast<unsigned>(letter - '0');
    }
    return static_cast<unsigned>((letter | 0x20) - 'a') + 10;
}

tl::expected<std::uint64_t, refusal> number_of(std::string_view option_name, std::string_view text) {
    const auto number = exact_number(text);
    if (!number) {
        return refuse(named(option_name, text) + " is no number");
    }
    return *number;
}

status take_number(std::optional<std::uint64_t>& target, const given_options& given, option id) {
    if (const given_option* const option = given.find(id)) {
        const auto number = number_of(option->row->name, option->values.front());
        if (!number) {
            return tl::make_unexpected(number.error());
        }
        target = *number;
    }
    return {};
}

status take_volume_number(exact_options& options, const given_options& given) {
    if (given.has(option::first_ntfsvol)) {
        options.ntfsvol = 1;
    }
    return take_number(options.ntfsvol, given, option::ntfsvol).and_then([&]() -> status {
        if (options.ntfsvol == 0) {
            return refuse(named("-ntfsvol", given.value(option::ntfsvol)) + ": volumes are counted from 1");
        }
        return {};
    });
}

status take_sector_size(exact_options& options, const given_options& given) {
    std::optional<std::uint64_t> size;
    return take_number(size, given, option::sector_size).and_then([&]() -> status {
        if (size && *size != 512 && *size != 1024 && *size != 2048 && *size != 4096) {
            return refuse(named("-sector_size", given.value(option::sector_size)) +
                          " is not 512, 1024, 2048 or 4096");
        }
        if (size) {
            options.sector_size = static_cast<std::uint32_t>(*size);
        }
        return {};
    });
}

status take_threads(exact_options& options, const given_options& given) {
    std::optional<std::uint64_t> workers;
    return take_number(workers, given, option::threads).and_then([&]() -> status {
        if (workers && (*workers < 1 || *workers > worker_pool::most_workers)) {
            return refuse(named("-threads", given.value(option::threads)) + " is not 1 to " +
                          std::to_string(worker_pool::most_workers));
        }
        if (workers) {
            options.threads = static_cast<unsigned>(*workers);
        }
        return {};
    });
}

// "C", or "Volume{GUID}" with the GUID in its usual groups of hexadecimal digits.
bool is_letter(std::string_view text) {
    if (text.size() == 1) {
        return (text[0] | 0x20) >= 'a' && (text[0] | 0x20) <= 'z';
    }
    constexpr std::string_view shape = "volume{xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx}";
    return std::equal(text.begin(), text.end(), shape.begin(), shape.end(), [](char typed, char expected) {
        const bool is_digit_place = expected == 'x';
        const bool is_word_place = expected >= 'a' && expected <= 'z';
        return is_digit_place ? is_hexadecimal(typed)
                              : (is_word_place ? (typed | 0x20) == expected : typed == expected);
    });
}

status take_letters(exact_options& options, const given_options& given) {
    options.letters = given.all_values(option::letter);
    for (const std::string& letter : options.letters) {
        if (!is_letter(letter)) {
            return refuse(named("-letter", letter) + " is neither a letter nor Volume{GUID}");
        }
    }
    return {};
}

// The files of a chain may be named in one value, with "|", "," or ";" between them.
status take_source(exact_options& options, const given_options& given) {
    const option id = given.has(option::volume_source) ? option::volume_source : option::disk_source;
    const source_option& named = *given.find(id)->row->source;
    options.source.kind = named.kind;
    if (named.value != source_value::files) {
        options.source.paths = given.all_values(id);
        return {};
    }
    for (std::string list : given.all_values(id)) {
        replace_char(list, ',', '|', false);
        replace_char(list, ';', '|', false);
        split(options.source.paths, list, '|', {.trim_each = true, .append = true});
    }
    if (options.source.paths.empty()) {
        return refuse(std::string(named.word) + " needs a value; this one names no file");
    }
    return {};
}

status take_entry(exact_options& options, const given_options& given) {
    auto object = parse_entry(given.value(option::mft));
    if (!object) {
        return refuse(named("-mft", given.value(option::mft)) + " is no entry; say N or N-SEQUENCE");
    }
    object->stream = given.value(option::src);
    options.object = std::move(*object);
    return {};
}

status take_clusters(exact_options& options, const given_options& given) {
    const std::vector<std::string>& values = given.find(option::cluster)->values;
    object_by_clusters object;
    for (std::size_t i = 0; i < values.size(); ++i) {
        const auto number = number_of("-cluster", values[i]);
        if (!number) {
            return tl::make_unexpected(number.error());
        }
        (i == 0 ? object.lcn : object.count) = *number;
    }
    if (object.count == 0) {
        return refuse(named("-cluster", values.back()) + ": no cluster is asked for");
    }
    options.object = object;
    return {};
}

status take_object(exact_options& options, const given_options& given) {
    if (given.has(option::mft)) {
        return take_entry(options, given);
    }
    if (given.has(option::cluster)) {
        return take_clusters(options, given);
    }
    if (given.has(option::src)) {
        options.object = object_by_path{given.value(option::src)};
    }
    return {};
}

void take_switches(exact_options& options, const given_options& given) {
    options.volumes = given.has(option::volumes);
    options.verify_source = given.has(option::verify_source);
    options.pipe = given.has(option::pipe);
    options.tree = given.has(option::tree);
    if (const given_option* const asked = given.find(option::listing)) {
        options.listing = {asked->row->listing, asked->values.front()};
    }
    options.recurse = given.has(option::recurse);
    options.deleted = given.has(option::deleted);
    options.raw = given.has(option::raw);
    options.zero_unreadable = given.has(option::zero_unreadable);
    options.sparse = given.has(option::sparse);
    options.overwrite = given.has(option::overwrite);
    options.keep_times = given.has(option::keep_times);
    options.md5 = given.has(option::md5);
    options.resume = given.has(option::resume);
    options.manifest_path = given.value(option::manifest);
    options.sha256 = given.has(option::sha256) || given.has(option::manifest);
    options.quiet = given.has(option::quiet);
    options.destination = given.value(option::dst);
    options.log_path = given.value(option::diags);
}

status take_source_digest(exact_options& options, const given_options& given) {
    constexpr std::size_t digits_of_sha256 = 64;
    options.source_sha256 = given.value(option::source_sha256);
    const bool is_digest =
        options.source_sha256.size() == digits_of_sha256 &&
        std::all_of(options.source_sha256.begin(), options.source_sha256.end(), is_hexadecimal);
    if (given.has(option::source_sha256) && !is_digest) {
        return refuse(named("-source_sha256", given.value(option::source_sha256)) +
                      " is no SHA-256; it has 64 hexadecimal digits");
    }
    for (char& digit : options.source_sha256) {
        digit = digit >= 'A' && digit <= 'F' ? static_cast<char>(digit | 0x20) : digit;
    }
    return {};
}

// What has no effect without the manifest that it is for.
status check_manifest(const given_options& given) {
    for (const option needs_manifest : {option::source_sha256, option::resume}) {
        if (given.has(needs_manifest) && !given.has(option::manifest)) {
            return refuse(std::string(given.find(needs_manifest)->row->name) + " needs -manifest");
        }
    }
    // With -md5 no name is known before the bytes are read again.
    return nothing_beside(given, option::manifest, {option::volumes, option::verify_source}).and_then([&] {
        return nothing_beside(given, option::resume, {option::md5});
    });
}

status check_paths(const given_options& given) {
    for (const given_option* const option : given.among(
             {option::disk_source, option::volume_source, option::dst, option::manifest, option::diags})) {
        if (option->values.front().empty()) {
            return refuse(std::string(option->row->name) + " needs a value; this one is empty");
        }
    }
    return {};
}

bool asks_for(const std::vector<std::string>& arguments, option wanted) {
    return std::any_of(arguments.begin() + 1, arguments.end(), [wanted](const std::string& word) {
        const option_row* const row = find_option(word);
        return row != nullptr && row->id == wanted;
    });
}

// Help is asked for by a word of its own. As the value of an option the word is refused as any option is.
bool asks_for_help(std::span<const std::string> words) {
    while (!words.empty()) {
        const option_row* const row = find_option(words.front());
        if (row != nullptr && row->id == option::help) {
            return true;
        }
        const std::size_t values = row == nullptr ? 0 : row->values;
        words = words.subspan(std::min(1 + values, words.size()));
    }
    return false;
}

}  // namespace

bool asks_for_exact_mode(const std::vector<std::string>& arguments) {
    return arguments.size() > 1 && asks_for(arguments, option::exact);
}

bool asks_for_listing(const std::vector<std::string>& arguments) {
    return arguments.size() > 1 && asks_for(arguments, option::listing);
}

std::optional<std::uint64_t> exact_number(std::string_view text) {
    const bool hexadecimal = text.starts_with("0x") || text.starts_with("0X");
    const std::string_view digits = hexadecimal ? text.substr(2) : text;
    const unsigned radix = hexadecimal ? 16 : 10;
    if (digits.empty()) {
        return std::nullopt;
    }
    std::uint64_t number = 0;
    for (const char letter : digits) {
        if (!is_hexadecimal(letter) || digit_value(letter) >= radix) {
            return std::nullopt;
        }
        const unsigned digit = digit_value(letter);
        if (number > (std::numeric_limits<std::uint64_t>::max() - digit) / radix) {
            return std::nullopt;
        }
        number = number * radix + digit;
    }
    return number;
}

std::optional<object_by_entry> parse_entry(std::string_view text) {
    const std::size_t dash = text.find('-');
    const auto entry = exact_number(text.substr(0, dash));
    if (!entry) {
        return std::nullopt;
    }
    object_by_entry object;
    object.entry = *entry;
    if (dash != std::string_view::npos) {
        const auto sequence = exact_number(text.substr(dash + 1));
        if (!sequence || *sequence > std::numeric_limits<std::uint16_t>::max()) {
            return std::nullopt;
        }
        object.sequence = static_cast<std::uint16_t>(*sequence);
    }
    return object;
}

tl::expected<exact_options, refusal> parse_exact_options(const std::vector<std::string>& arguments) {
    exact_options options;
    options.help = asks_for_help(std::span(arguments).subspan(1));
    if (options.help) {
        return options;
    }
    given_options given;
    return given.take(std::span(arguments).subspan(1))
        .and_then([&] { return check_combination(given); })
        .and_then([&] { return check_manifest(given); })
        .and_then([&] { return check_paths(given); })
        .and_then([&] { return take_number(options.offset, given, option::offset); })
        .and_then([&] { return take_volume_number(options, given); })
        .and_then([&] { return take_sector_size(options, given); })
        .and_then([&] { return take_threads(options, given); })
        .and_then([&] { return take_letters(options, given); })
        .and_then([&] { return take_object(options, given); })
        .and_then([&] { return take_source_digest(options, given); })
        .and_then([&] { return take_source(options, given); })
        .map([&] {
            take_switches(options, given);
            return options;
        });
}

}  // namespace quarry::exact
