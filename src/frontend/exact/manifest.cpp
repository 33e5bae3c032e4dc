#include "frontend/exact/manifest.h"

#include "frontend/options/source_table.h"

#include <array>
#include <climits>
#include <ctime>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace quarry::exact {

namespace {

std::int64_t now() {
    return static_cast<std::int64_t>(std::time(nullptr));
}

std::string host_name() {
    std::array<char, HOST_NAME_MAX + 1> name{};
    return ::gethostname(name.data(), name.size() - 1) == 0 ? name.data() : "";
}

std::string working_directory() {
    std::array<char, PATH_MAX> path{};
    return ::getcwd(path.data(), path.size()) == nullptr ? "" : path.data();
}

}  // namespace

manifest::manifest(const exact_options& options, const arg_list& arguments,
                   std::unique_ptr<manifest_file> file, only_by_open)
    : m_file(std::move(file)), m_options(options), m_run{now(), host_name(), working_directory(), arguments} {
    m_source.kind = option_of(options.source.kind).word_without_dash();
    for (const std::string& path : options.source.paths) {
        m_source.files.push_back({path});
    }
    m_source.sha256_told = options.source_sha256;
}

result<std::unique_ptr<manifest>> manifest::open(const exact_options& options, const arg_list& arguments,
                                                 output_guard& guard) {
    auto file = manifest_file::open(options.manifest_path, guard);
    if (!file) {
        return passed_on(file);
    }
    complete_copies earlier;
    if (options.resume) {
        auto read = complete_copies::read((*file)->descriptor(), (*file)->where());
        if (!read) {
            return passed_on(read);
        }
        earlier = std::move(*read);
    }
    auto opened = std::make_unique<manifest>(options, arguments, std::move(*file), only_by_open{});
    opened->m_earlier = std::move(earlier);
    return opened;
}

void manifest::set_source(const opened_source& source, const std::vector<std::string>& files) {
    m_source.kind = source.ewf != nullptr ? "ewf" : m_source.kind;
    m_source.files.clear();
    for (std::size_t i = 0; i < files.size(); ++i) {
        const bool is_open = i < source.files.size();
        m_source.files.push_back({files[i], is_open ? std::optional(source.files[i]->size()) : std::nullopt});
    }
    m_source.acquired_md5 = source.acquired_md5;
    m_source.acquired_sha1 = source.acquired_sha1;
    m_source.sector_size = source.bytes->sector_size();
    m_source.mounted = source.mounted;
}

void manifest::add_warnings(const notices& told) {
    m_warnings.insert(m_warnings.end(), told.all().begin(), told.all().end());
}

bool manifest::is_kept(const object_facts& object, const std::string& path) const {
    const auto key = key_of_copy(m_source, m_volume, object, m_run.directory, path);
    const auto size = key ? m_earlier.size_of(*key, m_run.directory, path) : std::nullopt;
    struct ::stat status {};
    return size && ::lstat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
           static_cast<std::uint64_t>(status.st_size) == *size;
}

result<void> manifest::append(std::string_view line, bool has_copy) {
    auto appended = m_file->append(line);
    if (!appended) {
        appended.error().why =
            (has_copy ? "the copy stands, its line is missing: " : "its line is missing: ") +
            appended.error().why;
    }
    return appended;
}

result<void> manifest::add(record added) {
    const bool has_copy = added.copy.has_value();
    return append(line_of(std::move(added)), has_copy);
}

result<void> manifest::add_line_of_copy(std::string_view line) {
    return append(line, true);
}

std::string manifest::line_of(record added) const {
    manifest_entry entry{m_run, m_source};
    entry.volume = m_volume;
    entry.line = added.line;
    entry.finished = now();
    entry.outcome = added.outcome;
    entry.error = added.error;
    entry.warnings = m_warnings;
    if (added.told != nullptr) {
        entry.warnings.insert(entry.warnings.end(), added.told->all().begin(), added.told->all().end());
    }
    entry.object = std::move(added.object);
    entry.copy = std::move(added.copy);
    return manifest_line(entry);
}

result<void> manifest::add_ended_run(const failure& why, std::optional<std::string> asked) {
    manifest_entry entry{m_run, m_source};
    entry.finished = now();
    entry.outcome = "failed";
    entry.error = &why;
    entry.warnings = m_warnings;
    entry.object.asked = std::move(asked);
    entry.object.raw = m_options.raw;
    return append(manifest_line(entry), false);
}

}  // namespace quarry::exact
