#include "report/sid_names.h"

#include <algorithm>
#include <array>
#include <iterator>

namespace quarry {

namespace {

// Bytes that have to be available for a SID with one sub-authority, and for one without any too.
constexpr std::uint64_t fewest_available_bytes = 12;

constexpr std::string_view unknown = "unk";

constexpr std::array<std::string_view, 4> creator_names = {"Owner", "Group", "Owner Server", "Group Server"};

constexpr std::array<std::string_view, 33> system_names = {
    unknown,           "Dialup",
    "Network",         "Batch",
    "Interactive",     "Logon Ids",
    "Service",         "Anonymous Logon",
    "Proxy",           "Server Logon [Domain Controllers]",
    "Principal Self",  "Authenticated User",
    "Restricted Code", "Terminal Server Users",
    unknown,           unknown,
    unknown,           unknown,
    "Local System",    "Local Service",
    "Network Service", "NT Non Unique",
    unknown,           unknown,
    unknown,           unknown,
    unknown,           unknown,
    unknown,           unknown,
    unknown,           unknown,
    "Builtin Domain",
};

struct relative_id {
    std::uint32_t id;
    std::string_view name;
};

// Ascending, for the binary search.
constexpr relative_id relative_ids[] = {
    {500, "User Admin"},
    {501, "User Guest"},
    {502, "KRBTGT [key distrib center]"},
    {512, "Domain Admin"},
    {513, "Domain Users"},
    {514, "Domain Guests"},
    {515, "Domain Computers"},
    {516, "Domain Controllers"},
    {517, "Domain Certificate Publishers"},
    {518, "Domain Schema Admins"},
    {519, "Domain Server Admins"},
    {520, "Domain Policy Creater/Owner"},
    {533, "Domain RAS & IAS Servers"},
    {544, "Admins"},
    {545, "Users"},
    {546, "Guests"},
    {547, "Power Users"},
    {548, "Account Operators"},
    {549, "Server Operators"},
    {550, "Print Operators"},
    {551, "Backup Operators"},
    {552, "Replicators"},
    {553, "RAS Services"},
    {554, "Pre Win2k Compatible Access"},
    {555, "Remote Desktop Users"},
    {556, "Network Configuration Operators"},
    {557, "Incoming Trust Forest Builders"},
    {558, "Performance Monitor Users"},
    {559, "Performance Log Users"},
    {560, "Windows Authorization Access Group"},
    {561, "Terminal Server License Servers"},
};

template <std::size_t Size>
std::string_view name_at(const std::array<std::string_view, Size>& names, std::uint32_t index) {
    return index < names.size() ? names[index] : unknown;
}

std::string_view name_of_relative_id(std::uint32_t id) {
    const auto* const found =
        std::lower_bound(std::begin(relative_ids), std::end(relative_ids), id,
                         [](const relative_id& entry, std::uint32_t wanted) { return entry.id < wanted; });
    return found != std::end(relative_ids) && found->id == id ? found->name : unknown;
}

std::string_view name_by_authority(std::uint8_t authority, std::uint32_t sub_authority) {
    switch (authority) {
        case 0:
            return "null";
        case 1:
            return "World";
        case 2:
            return "Local";
        case 3:
            return name_at(creator_names, sub_authority);
        case 5:
            return name_at(system_names, sub_authority);
        default:
            return unknown;
    }
}

}  // namespace

bool sid_to_text(std::string& out, byte_view sid, std::uint64_t available_bytes) {
    out.clear();
    const sid_view view(sid);
    if (available_bytes < fewest_available_bytes || view.length() > available_bytes ||
        view.length() > sid.size()) {
        return false;
    }
    // Deliberate: the lowest byte of the identifier authority, not all of it. The user sees authorities above
    // 255 cut to that byte.
    out = "S-" + std::to_string(view.revision()) + "-" + std::to_string(view.authority());
    for (std::uint32_t i = 0; i < view.count(); ++i) {
        out += '-';
        out += std::to_string(view.sub_authority(i).value_or(0));
    }
    return true;
}

std::string_view sid_name(byte_view sid) {
    const sid_view view(sid);
    if (view.count() == 0) {
        return unknown;
    }
    const std::optional<std::uint32_t> last = view.sub_authority(view.count() - 1u);
    if (!last) {
        return unknown;
    }
    // Deliberate: the relative id decides without its domain, not within it. The user sees the same name for
    // the administrators of all domains, and a name of the table for any account whose id is in it.
    return view.count() == 1 ? name_by_authority(view.authority(), *last) : name_of_relative_id(*last);
}

}  // namespace quarry
