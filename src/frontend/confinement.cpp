#include "frontend/confinement.h"

#include "foundation/descriptor_io.h"
#include "foundation/ql_portable_dir.h"
#include "foundation/ql_string.h"
#include "frontend/copy/copy_outputs.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <dirent.h>
#include <fcntl.h>
#include <iterator>
#include <linux/landlock.h>
#include <map>
#include <memory>
#include <set>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <utility>

namespace quarry {

namespace {

// Of a version that headers of Debian 12 do not know yet.
constexpr std::uint64_t access_truncate = std::uint64_t{1} << 14;

constexpr std::uint64_t reading = LANDLOCK_ACCESS_FS_READ_FILE | LANDLOCK_ACCESS_FS_READ_DIR;
constexpr std::uint64_t writing_a_file = LANDLOCK_ACCESS_FS_WRITE_FILE | access_truncate;
constexpr std::uint64_t writing_in_a_directory =
    writing_a_file | LANDLOCK_ACCESS_FS_MAKE_REG | LANDLOCK_ACCESS_FS_REMOVE_FILE;
constexpr std::uint64_t making_directories = LANDLOCK_ACCESS_FS_MAKE_DIR | LANDLOCK_ACCESS_FS_REMOVE_DIR;
// What a rule for anything but a directory may hold.
constexpr std::uint64_t rights_on_a_file = LANDLOCK_ACCESS_FS_READ_FILE | writing_a_file;

// Everything that changes the file system, starts a program, or reads.
constexpr std::uint64_t governed_of_files =
    ((LANDLOCK_ACCESS_FS_MAKE_SYM << 1) - 1) | LANDLOCK_ACCESS_FS_REFER | access_truncate;

// To bind a TCP socket and to connect one.
constexpr std::uint64_t governed_of_tcp = 0x3;
// To connect to an abstract socket of a process outside, and to send one a signal.
constexpr std::uint64_t governed_of_processes = 0x3;

// What each version of Landlock knows. Version 1 came with Linux 5.13, 2 with 5.19, 3 with 6.2, 4 with 6.7
// and 6 with 6.12.
governed_rights known_rights(int version) {
    constexpr std::uint64_t since_version_2 = LANDLOCK_ACCESS_FS_REFER;
    constexpr std::uint64_t since_version_3 = access_truncate;
    governed_rights known;
    known.files =
        governed_of_files & ~(version < 2 ? since_version_2 : 0) & ~(version < 3 ? since_version_3 : 0);
    known.tcp = version < 4 ? 0 : governed_of_tcp;
    known.processes = version < 6 ? 0 : governed_of_processes;
    return known;
}

std::string directory_of(const std::string& path) {
    const std::size_t separator = path.rfind('/');
    if (separator == std::string::npos) {
        return ".";
    }
    return separator == 0 ? "/" : path.substr(0, separator);
}

// Where a link leads that leads to nothing, so that a file is made there; empty for any other path.
std::string end_of_dangling_link(std::string path) {
    constexpr int most_links = 40;
    std::array<char, PATH_MAX> target{};
    bool is_link = false;
    for (int links = 0; links < most_links; ++links) {
        const ::ssize_t length = ::readlink(path.c_str(), target.data(), target.size());
        if (length <= 0) {
            return is_link && ::access(path.c_str(), F_OK) != 0 ? path : std::string();
        }
        const std::string next(target.data(), static_cast<std::size_t>(length));
        path = next.front() == '/' ? next : directory_of(path).append("/").append(next);
        is_link = true;
    }
    return {};
}

class ruleset {
  public:
    ruleset(kernel_calls& kernel, int fd, std::uint64_t known) : m_kernel(kernel), m_fd(fd), m_known(known) {}

    // A path that leads nowhere needs no rule: what is made there is under its directory's.
    void allow(const std::string& path, std::uint64_t rights) {
        if (!is_new(path, rights)) {
            return;
        }
        const owned_descriptor place(::open(path.c_str(), O_PATH | O_CLOEXEC));
        struct ::stat status {};
        if (place.get() >= 0 && ::fstat(place.get(), &status) == 0) {
            add(place, rights & (S_ISDIR(status.st_mode) ? m_known : rights_on_a_file));
        }
    }

    // False if there is no such directory.
    bool allow_directory(const std::string& path, std::uint64_t rights) {
        if (!is_new(path, rights)) {
            return true;
        }
        const owned_descriptor place(::open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
        if (place.get() >= 0) {
            add(place, rights);
        }
        return place.get() >= 0;
    }

    // The directory of an output, which is enough for one that is no link.
    void allow_output(const std::string& path) {
        struct ::stat status {};
        const bool exists = ::lstat(path.c_str(), &status) == 0;
        if (exists && S_ISLNK(status.st_mode)) {
            allow_output_link(path);
        } else if (!exists || !S_ISDIR(status.st_mode)) {
            allow_directory_of(path);
        }
    }

    // The directory, and what the links lead to that are in it when the run begins: whoever made them wants
    // copies there. One that is made later leads out of what is allowed.
    void allow_outputs_in(const std::string& path) {
        allow(path, writing_in_a_directory);
        const std::unique_ptr<::DIR, int (*)(::DIR*)> directory(::opendir(path.c_str()), ::closedir);
        if (directory == nullptr) {
            return;
        }
        while (const ::dirent* const entry = ::readdir(directory.get())) {
            if (entry->d_type == DT_LNK || entry->d_type == DT_UNKNOWN) {
                allow_output(path + "/" + entry->d_name);
            }
        }
    }

    [[nodiscard]] bool is_complete() const { return m_complete; }

  private:
    void allow_output_link(const std::string& path) {
        struct ::stat status {};
        if (::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode)) {
            return;
        }
        allow_directory_of(path);
        allow(path, writing_a_file);
        if (const std::string end = end_of_dangling_link(path); !end.empty()) {
            allow_directory_of(end);
        }
    }

    // The directory of a file that may not exist yet, or the nearest above it that does.
    void allow_directory_of(const std::string& path) {
        std::string directory = directory_of(path);
        // Ends at "/" or ".", which are their own directories or exist.
        while (!allow_directory(directory, writing_in_a_directory) && directory != "/" && directory != ".") {
            directory = directory_of(directory);
        }
    }

    // False for what has a rule already.
    bool is_new(const std::string& path, std::uint64_t rights) {
        std::uint64_t& given = m_given[path];
        return std::exchange(given, given | rights) != (given | rights);
    }

    // A file that is in no directory, such as a pipe that /dev/stdout leads to, cannot have a rule: EBADFD.
    // The kernel lets it be opened.
    void add(const owned_descriptor& place, std::uint64_t rights) {
        landlock_path_beneath_attr rule{};
        rule.parent_fd = place.get();
        rule.allowed_access = rights & m_known;
        if (rule.allowed_access != 0 && m_kernel.add_rule(m_fd, rule) != 0 && errno != EBADFD) {
            m_complete = false;
        }
    }

    kernel_calls& m_kernel;
    int m_fd;
    std::uint64_t m_known;
    std::map<std::string, std::uint64_t> m_given;
    bool m_complete = true;
};

bool looks_into_files(const filter_list& filters) {
    return std::any_of(filters.begin(), filters.end(),
                       [](const filter_entry& entry) { return !entry.signature.empty(); });
}

}  // namespace

int kernel_calls::landlock_version() {
    return static_cast<int>(
        ::syscall(SYS_landlock_create_ruleset, nullptr, 0, LANDLOCK_CREATE_RULESET_VERSION));
}

int kernel_calls::create_ruleset(const governed_rights& governed) {
    return static_cast<int>(::syscall(SYS_landlock_create_ruleset, &governed, sizeof(governed), 0));
}

int kernel_calls::add_rule(int ruleset, const landlock_path_beneath_attr& rule) {
    return static_cast<int>(::syscall(SYS_landlock_add_rule, ruleset, LANDLOCK_RULE_PATH_BENEATH, &rule, 0));
}

int kernel_calls::restrict_self(int ruleset) {
    return static_cast<int>(::syscall(SYS_landlock_restrict_self, ruleset, 0));
}

int kernel_calls::give_up_new_rights() {
    return ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
}

std::vector<std::string> host_descriptions() {
    return {"/dev", "/proc", "/sys"};
}

needed_files files_needed_by(const quarry_opts& opts) {
    needed_files files;
    files.reads_any_file =
        !opts.m_source.is_given() || opts.m_run.m_enum || looks_into_files(opts.m_run.m_filter);
    files.sources = opts.m_source.files();
    // The chosen source is known by its whole path. A rule for it as it was typed would be a second one.
    const std::set<std::string> chosen(files.sources.begin(), files.sources.end());
    std::copy_if(
        opts.m_run.m_source_files.begin(), opts.m_run.m_source_files.end(), std::back_inserter(files.sources),
        [&chosen](const std::string& typed) { return !chosen.contains(canonical_path(typed, '/')); });
    // Among the devices is the first drive: clusters of an image that cannot be opened are read from there.
    files.read_dirs = host_descriptions();
    const std::string destination = narrow(opts.m_dst);
    if (!destination.empty()) {
        files.outputs = files_of_copy(destination);
        if (destination.ends_with('/') || destination.ends_with('\\')) {
            files.output_dirs = {destination.ends_with('/') ? destination : directory_of(destination)};
        }
    }
    if (!opts.m_run.m_log.path().empty()) {
        files.outputs.push_back(opts.m_run.m_log.path());
    }
    return files;
}

bool confine_files(const needed_files& files, kernel_calls& kernel) {
    const int version = kernel.landlock_version();
    if (version < 1) {
        return false;
    }
    const governed_rights governed = known_rights(version);
    const owned_descriptor rules_descriptor(kernel.create_ruleset(governed));
    if (rules_descriptor.get() < 0) {
        return false;
    }
    ruleset rules(kernel, rules_descriptor.get(), governed.files);
    if (files.reads_any_file) {
        rules.allow("/", reading);
    }
    for (const std::string& source : files.sources) {
        rules.allow(source, reading);
    }
    for (const std::string& directory : files.read_dirs) {
        rules.allow_directory(directory, reading);
    }
    for (const std::string& output : files.outputs) {
        rules.allow_output(output);
    }
    for (const std::string& directory : files.output_dirs) {
        rules.allow_outputs_in(directory);
    }
    for (const std::string& directory : files.sealed_dirs) {
        // It is opened itself, to be synced.
        rules.allow(directory, writing_in_a_directory | LANDLOCK_ACCESS_FS_READ_DIR |
                                   (files.reads_sealed ? std::uint64_t{LANDLOCK_ACCESS_FS_READ_FILE} : 0) |
                                   (files.makes_dirs ? making_directories : 0));
    }
    return rules.is_complete() && kernel.give_up_new_rights() == 0 &&
           kernel.restrict_self(rules_descriptor.get()) == 0;
}

}  // namespace quarry
