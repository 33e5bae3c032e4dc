#include "frontend/run_header.h"

#include "foundation/ql_string.h"
#include "foundation/ql_text.h"
#include "foundation/ql_time_format.h"
#include "frontend/usage.h"

#include <array>
#include <climits>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/utsname.h>
#include <sys/vfs.h>
#include <unistd.h>

namespace quarry {

namespace {

constexpr std::string_view default_date_pattern = "mm/dd/yyyy";
constexpr std::string_view time_pattern = "hh:mm:ss";
constexpr std::string_view network_mark = "<~>";
constexpr std::string_view usb_mark = ":=";
constexpr std::size_t program_path_buffer_bytes = 2048;

constexpr std::array<std::uint32_t, 4> network_file_systems = {0x6969, 0x517B, 0x65735546, 0xFF534D42};

// Where sysfs keeps the device of a file, from its own directory of devices on.
std::string device_path_of(const struct ::stat& status) {
    const std::string link = "/sys/dev/block/" + std::to_string(::major(status.st_dev)) + ":" +
                             std::to_string(::minor(status.st_dev));
    std::array<char, PATH_MAX> target{};
    const ::ssize_t length = ::readlink(link.c_str(), target.data(), target.size());
    return length <= 0 ? std::string() : std::string(target.data(), static_cast<std::size_t>(length));
}

program_place place_of_this_program() {
    program_place place;
    std::array<char, program_path_buffer_bytes> buffer{};
    const ::ssize_t length = ::readlink("/proc/self/exe", buffer.data(), buffer.size() - 1);
    if (length <= 1) {
        return place;
    }
    struct ::statfs file_system {};
    if (::statfs(buffer.data(), &file_system) == 0) {
        place.on_network = is_network_file_system(static_cast<std::uint64_t>(file_system.f_type));
    }
    struct ::stat status {};
    if (::lstat(buffer.data(), &status) == 0) {
        place.on_usb = is_usb_device_path(device_path_of(status));
    }
    return place;
}

}  // namespace

bool is_network_file_system(std::uint64_t file_system_type) {
    // The kernel hands some of these numbers out sign-extended.
    const auto type = static_cast<std::uint32_t>(file_system_type & 0xFFFFFFFFu);
    for (const std::uint32_t known : network_file_systems) {
        if (type == known) {
            return true;
        }
    }
    return false;
}

bool is_usb_device_path(std::string_view device_path) {
    return device_path.find("usb") != std::string_view::npos;
}

std::string platform_text(const kernel_facts& kernel, const program_place& place) {
    std::string text;
    for (std::string field : {kernel.system, kernel.version, kernel.release}) {
        replace_char(field, ';', ' ', false);
        text += field + ";";
    }
    std::string machine = kernel.machine;
    lower_narrow(machine);
    text += machine.find("64") != std::string::npos ? "64" : "32";
    if (place.on_network || place.on_usb) {
        text += "; ";
        text += place.on_network ? network_mark : "";
        text += place.on_usb ? usb_mark : "";
    }
    return text;
}

std::string run_header(const arg_list& args, const ql::time& now, std::string_view date_pattern,
                       std::string_view host, std::string_view platform) {
    std::string date;
    std::string time;
    // A clock that cannot be shown leaves both empty.
    static_cast<void>(ql::format_with_patterns(date, time, now, date_pattern, time_pattern));
    std::string text = banner() + "\n";
    text += "run time: " + date + " " + time + " UTC; host: ";
    text += host;
    text += "; platform: ";
    text += platform;
    text += "\n\"command: ";
    text += peek_flag("-pipe", args, 1) ? "<filelist> ... | " : "";
    text += joined_arguments(args, '\'') + "\"\n";
    return text;
}

std::string run_header(const arg_list& args, const ql::time& now) {
    std::string date_pattern(default_date_pattern);
    // Deliberate: the header takes its date pattern as typed, also one that parsing refuses, not only a valid
    // one. The user sees the date in that pattern, and the complaint about it below.
    peek_value("-dateformat", date_pattern, args, 1);
    const program_place place = place_of_this_program();
    struct ::utsname name {};
    if (::uname(&name) != 0) {
        return run_header(args, now, date_pattern, "<unk>", platform_text({}, place));
    }
    return run_header(args, now, date_pattern, name.nodename,
                      platform_text({name.sysname, name.version, name.release, name.machine}, place));
}

}  // namespace quarry
