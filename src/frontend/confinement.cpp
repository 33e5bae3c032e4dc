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
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/landlock.h>
#include <linux/seccomp.h>
#include <map>
#include <memory>
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
constexpr std::uint64_t governed =
    ((LANDLOCK_ACCESS_FS_MAKE_SYM << 1) - 1) | LANDLOCK_ACCESS_FS_REFER | access_truncate;

// The rights that a version of Landlock knows.
std::uint64_t known_rights(int version) {
    if (version >= 3) {
        return governed;
    }
    return governed & ~access_truncate & ~(version == 2 ? 0 : std::uint64_t{LANDLOCK_ACCESS_FS_REFER});
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

#if defined(__x86_64__)
constexpr std::uint32_t this_architecture = AUDIT_ARCH_X86_64;
#elif defined(__aarch64__)
constexpr std::uint32_t this_architecture = AUDIT_ARCH_AARCH64;
#else
constexpr std::uint32_t this_architecture = 0;
#endif

// Programs, other processes, the network, mounts, the kernel's modules and its own programs.
constexpr std::array<long, 30> denied_calls = {
    SYS_execve,
    SYS_execveat,
    SYS_ptrace,
    SYS_process_vm_readv,
    SYS_process_vm_writev,
    SYS_socket,
    SYS_socketpair,
    SYS_connect,
    SYS_bind,
    SYS_mount,
    SYS_umount2,
    SYS_pivot_root,
    SYS_move_mount,
    SYS_fsopen,
    SYS_open_tree,
    SYS_fsmount,
    SYS_fspick,
    SYS_mount_setattr,
    SYS_open_by_handle_at,
    SYS_unshare,
    SYS_setns,
    SYS_init_module,
    SYS_finit_module,
    SYS_delete_module,
    SYS_kexec_load,
    SYS_kexec_file_load,
    SYS_io_uring_setup,  // its rings open sockets and files without a call of their own
    SYS_bpf,
    SYS_perf_event_open,
    SYS_reboot,
};

// Calls of the 32-bit twin that x86-64 has are denied: their numbers begin here.
constexpr std::uint32_t first_twin_call = 0x40000000;
// A bound above the numbers of today's calls.
constexpr std::uint32_t usual_calls = 512;

// The numbers from which on calls are denied, allowed, denied and so on, in rising order.
struct call_borders {
    std::array<std::uint32_t, 2 * denied_calls.size() + 1> numbers{};
    std::size_t count = 0;
};

constexpr call_borders find_borders() {
    std::array<std::uint32_t, denied_calls.size()> sorted{};
    std::transform(denied_calls.begin(), denied_calls.end(), sorted.begin(),
                   [](long call) { return static_cast<std::uint32_t>(call); });
    std::sort(sorted.begin(), sorted.end());
    call_borders borders;
    for (const std::uint32_t call : sorted) {
        if (borders.count == 0 || borders.numbers[borders.count - 1] != call) {
            borders.numbers[borders.count++] = call;
        } else {
            --borders.count;
        }
        borders.numbers[borders.count++] = call + 1;
    }
    borders.numbers[borders.count++] = first_twin_call;
    return borders;
}

constexpr call_borders borders = find_borders();
constexpr std::size_t statements_before_search = 3;
constexpr std::size_t allowing_statement = statements_before_search + borders.count;
constexpr std::size_t denying_statement = allowing_statement + 1;
using call_filter = std::array<sock_filter, denying_statement + 1>;

constexpr sock_filter statement(unsigned code, std::uint32_t value) {
    return {static_cast<std::uint16_t>(code), 0, 0, value};
}

// A jump of the statement at `from`, taken if the value loaded meets the condition, or else not.
constexpr sock_filter jump(unsigned condition, std::uint32_t value, std::size_t from, std::size_t taken,
                           std::size_t not_taken) {
    return {static_cast<std::uint16_t>(BPF_JMP | BPF_K | condition),
            static_cast<std::uint8_t>(taken - from - 1), static_cast<std::uint8_t>(not_taken - from - 1),
            value};
}

// Writes, from statement `at` on, the search among borders [first, last) for a number in [low, high): one
// statement for each border. Each looks first at the border nearest to the middle of the numbers, so that
// most are found soon. What is answered between two borders alternates, denied after the first.
constexpr void write_search(call_filter& filter, std::size_t at, std::size_t first, std::size_t last,
                            std::uint32_t low, std::uint32_t high) {
    const std::uint32_t middle = low + (high - low) / 2;
    const auto distance = [middle](std::uint32_t number) {
        return number < middle ? middle - number : number - middle;
    };
    std::size_t nearest = first;
    for (std::size_t index = first; index < last; ++index) {
        nearest = distance(borders.numbers[index]) < distance(borders.numbers[nearest]) ? index : nearest;
    }
    const std::uint32_t number = borders.numbers[nearest];
    const auto answer_after = [](std::size_t borders_passed) {
        return borders_passed % 2 == 0 ? allowing_statement : denying_statement;
    };
    const std::size_t lower = nearest > first ? at + 1 : answer_after(nearest);
    const std::size_t upper = nearest + 1 < last ? at + 1 + (nearest - first) : answer_after(nearest + 1);
    filter[at] = jump(BPF_JGE, number, at, upper, lower);
    if (nearest > first) {
        write_search(filter, lower, first, nearest, low, number);
    }
    if (nearest + 1 < last) {
        write_search(filter, upper, nearest + 1, last, number, std::max(number, high));
    }
}

// Denies `denied_calls`. Calls of another architecture have other numbers: all are denied.
//
// Made by the compiler, and short on the way: when the kernel takes the filter it runs it for each call that
// there is, and every run of the program pays for that.
constexpr call_filter make_filter() {
    call_filter filter{};
    filter[0] = statement(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, arch));
    filter[1] = jump(BPF_JEQ, this_architecture, 1, 2, denying_statement);
    filter[2] = statement(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr));
    write_search(filter, statements_before_search, 0, borders.count, 0, usual_calls);
    filter[allowing_statement] = statement(BPF_RET | BPF_K, SECCOMP_RET_ALLOW);
    filter[denying_statement] = statement(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EPERM);
    return filter;
}

}  // namespace

int kernel_calls::landlock_version() {
    return static_cast<int>(
        ::syscall(SYS_landlock_create_ruleset, nullptr, 0, LANDLOCK_CREATE_RULESET_VERSION));
}

int kernel_calls::create_ruleset(const landlock_ruleset_attr& attributes) {
    return static_cast<int>(::syscall(SYS_landlock_create_ruleset, &attributes, sizeof(attributes), 0));
}

int kernel_calls::add_rule(int ruleset, const landlock_path_beneath_attr& rule) {
    return static_cast<int>(::syscall(SYS_landlock_add_rule, ruleset, LANDLOCK_RULE_PATH_BENEATH, &rule, 0));
}

int kernel_calls::restrict_self(int ruleset) {
    return static_cast<int>(::syscall(SYS_landlock_restrict_self, ruleset, 0));
}

int kernel_calls::give_up_new_rights() {
    if (!m_gave_up_new_rights) {
        m_gave_up_new_rights = ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0;
    }
    return m_gave_up_new_rights ? 0 : -1;
}

int kernel_calls::filter_calls(const sock_fprog& program) {
    // Without this flag some kernels slow the whole process down.
    return static_cast<int>(
        ::syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, SECCOMP_FILTER_FLAG_SPEC_ALLOW, &program));
}

std::vector<std::string> host_descriptions() {
    return {"/dev", "/proc", "/sys"};
}

needed_files files_needed_by(const quarry_opts& opts) {
    needed_files files;
    files.reads_any_file =
        !opts.m_source.is_given() || opts.m_run.m_enum || looks_into_files(opts.m_run.m_filter);
    files.sources = opts.m_run.m_source_files;
    const std::vector<std::string> chosen = opts.m_source.files();
    files.sources.insert(files.sources.end(), chosen.begin(), chosen.end());
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
    landlock_ruleset_attr attributes{};
    attributes.handled_access_fs = known_rights(version);
    const owned_descriptor rules_descriptor(kernel.create_ruleset(attributes));
    if (rules_descriptor.get() < 0) {
        return false;
    }
    ruleset rules(kernel, rules_descriptor.get(), attributes.handled_access_fs);
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

bool deny_calls(kernel_calls& kernel) {
    if (this_architecture == 0) {
        return false;
    }
    static constexpr call_filter made = make_filter();
    call_filter filter = made;
    const sock_fprog program{static_cast<unsigned short>(filter.size()), filter.data()};
    return kernel.give_up_new_rights() == 0 && kernel.filter_calls(program) == 0;
}

}  // namespace quarry
