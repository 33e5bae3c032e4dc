// What a run gives up once it knows what it is to do.
//
// A reader of hostile bytes may have a mistake that nobody found. After the options are parsed the kernel is
// asked to hold the process to its task (Landlock, from Linux 5.13 on): it may write only into the
// directories of its outputs and read only its sources, and it may not start programs, trace other processes
// or mount. Newer kernels keep it from TCP, too, and from signals and abstract sockets of other processes.
// Nothing of it can be taken back, so only `main` calls it, never a test of this process.
//
// Deliberate: a kernel that lacks it is passed over in silence, not reported. The user sees the same copy on
// every host.
//
// Deliberate: no filter of system calls is added, for one costs a small copy a fifteenth of its time. What
// Landlock does not govern, such as UDP, stays open to a process that was taken over.
#pragma once

#include "frontend/options/quarry_opts.h"

#include <cstdint>
#include <string>
#include <vector>

struct landlock_path_beneath_attr;

namespace quarry {

// Which files of the host the rest of a run needs.
struct needed_files {
    bool reads_any_file = false;                // a path, a filter or a walk may name whatever the host has
    std::vector<std::string> sources = {};      // read; what does not exist is passed over
    std::vector<std::string> read_dirs = {};    // directories, read with all that is below them
    std::vector<std::string> outputs = {};      // written, replaced or removed, each with its neighbours
    std::vector<std::string> output_dirs = {};  // directories in which a list makes its outputs
    // Directories in which outputs are made under another name, renamed and brought to the disk. No link in
    // them is followed.
    std::vector<std::string> sealed_dirs = {};
    bool reads_sealed = false;  // files in those
    bool makes_dirs = false;    // below those, directories too, which may be removed again
};

// Directories that every run reads: where devices and mounts are described. The local time zone is known
// before.
[[nodiscard]] std::vector<std::string> host_descriptions();

// What a run needs whose options were parsed.
[[nodiscard]] needed_files files_needed_by(const quarry_opts& opts);

// What a process may do from here on only where a rule allows it. A copy of the kernel's structure, of which
// the headers of Debian 12 know the first member; an older kernel takes it as long as the others are zero.
struct governed_rights {
    std::uint64_t files = 0;
    std::uint64_t tcp = 0;
    std::uint64_t processes = 0;
};

// The calls with which a process confines itself, as the kernel has them: -1 for a failure. Tests hand in
// others.
class kernel_calls {
  public:
    kernel_calls() = default;
    kernel_calls(const kernel_calls&) = delete;
    kernel_calls& operator=(const kernel_calls&) = delete;
    virtual ~kernel_calls() = default;

    // The version of Landlock, at least 1.
    [[nodiscard]] virtual int landlock_version();
    // A descriptor of a set of rules.
    [[nodiscard]] virtual int create_ruleset(const governed_rights& governed);
    [[nodiscard]] virtual int add_rule(int ruleset, const landlock_path_beneath_attr& rule);
    [[nodiscard]] virtual int restrict_self(int ruleset);
    // From here on no program that is started gains rights. `restrict_self` wants this first.
    [[nodiscard]] virtual int give_up_new_rights();
};

// Leaves the process the files that a run needs, and nothing else that the kernel can govern. False, with
// nothing given up, where the kernel has no Landlock or does not take a rule.
bool confine_files(const needed_files& files, kernel_calls& kernel);

}  // namespace quarry
