// The header of a run: three lines that say what ran, when, where, and how it was called.
//
//     quarry ver: 1.14
//     run time: 11/20/2026 18:22:41 UTC; host: lab1; platform: Linux;#1 SMP;6.1.0-18-amd64;64
//     "command: quarry -image disk.dd -src /a.txt -dst a.txt"
//
// It comes before everything that a run prints and is in its status log, so that a copy can be traced to the
// call that made it.
#pragma once

#include "foundation/ql_time.h"
#include "frontend/arg_list.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace quarry {

// What the kernel says of itself, in the fields of uname(2).
struct kernel_facts {
    std::string system = "Linux";
    std::string version;
    std::string release;
    std::string machine;
};

// Where the program's own file lies. Reported only: an examiner should know that a tool came over the network
// or from a stick.
struct program_place {
    bool on_network = false;
    bool on_usb = false;
};

// True for the types of NFS, SMB, FUSE and CIFS in statfs(2).
[[nodiscard]] bool is_network_file_system(std::uint64_t file_system_type);
// True if the path of a device in sysfs, to which a link in /sys/dev/block leads, goes over USB.
[[nodiscard]] bool is_usb_device_path(std::string_view device_path);

// "Linux;<version>;<release>;64", with the marks of the program's place if there are any.
[[nodiscard]] std::string platform_text(const kernel_facts& kernel, const program_place& place);

// The three lines, each with its line end.
[[nodiscard]] std::string run_header(const arg_list& args, const ql::time& now, std::string_view date_pattern,
                                     std::string_view host, std::string_view platform);

// The same with the facts of this host and the date pattern that `args` asks for.
[[nodiscard]] std::string run_header(const arg_list& args, const ql::time& now);

}  // namespace quarry
