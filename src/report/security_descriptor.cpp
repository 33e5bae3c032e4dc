#include "report/security_descriptor.h"

#include "report/sid_names.h"

#include <algorithm>
#include <cstddef>

namespace quarry {

namespace {

constexpr std::size_t column_width = 15;

// An ACL: its head, then its entries.
class acl_view {
  public:
    static constexpr std::uint64_t first_ace_offset = 8;
    explicit acl_view(byte_view bytes) : m_bytes(bytes) {}
    [[nodiscard]] std::uint16_t ace_count() const { return m_bytes.u16_or_zero(4); }
    [[nodiscard]] byte_view aces() const { return m_bytes.from(first_ace_offset); }

  private:
    byte_view m_bytes;
};

// An ACE, with one layout for every type.
class ace_view {
  public:
    static constexpr std::uint16_t smallest = 8;
    explicit ace_view(byte_view bytes) : m_bytes(bytes) {}
    // True if the fixed part is there and the entry is as long as it at least.
    [[nodiscard]] bool is_whole() const { return m_bytes.size() >= smallest && size() >= smallest; }
    [[nodiscard]] std::uint8_t type() const { return m_bytes.u8_or_zero(0); }
    [[nodiscard]] std::uint16_t size() const { return m_bytes.u16_or_zero(2); }
    [[nodiscard]] std::uint32_t mask() const { return m_bytes.u32_or_zero(4); }
    [[nodiscard]] byte_view sid() const { return m_bytes.clipped(0, size()).from(8); }

  private:
    byte_view m_bytes;
};

void add_ace(ace_map& map, const ace_view& ace) {
    ace_line line;
    const byte_view sid = ace.sid();
    ace_type_word(ace.type(), line.type);
    ace_mask_words(ace.mask(), line.mask);
    // A SID that cannot be read leaves its text empty.
    static_cast<void>(sid_to_text(line.sid, sid, sid_view(sid).length()));
    line.name = sid_name(sid);
    std::string key = line.sid + line.type;
    const auto found = map.find(key);
    if (found == map.end()) {
        map.emplace(std::move(key), std::move(line));
    } else {
        // Deliberate: the words of all entries of a key follow each other, not each right once. The user can
        // see the same word twice.
        found->second.mask += " | " + line.mask;
    }
}

std::string padded(std::string text) {
    text.resize(std::max(text.size(), column_width), ' ');
    return text;
}

std::string text_of(const ace_line& line) {
    return padded(line.type) + " " + padded(line.name) + " " + line.mask;
}

void print_sid(std::ostream& out, std::string_view prefix, std::string_view label, byte_view descriptor,
               std::uint32_t offset, std::uint64_t available_bytes) {
    std::string text;
    static_cast<void>(sid_to_text(text, descriptor.from(offset), available_bytes));
    out << prefix << label << " [" << text << "]\n";
}

void print_acl(std::ostream& out, std::string_view prefix, std::string_view heading, byte_view descriptor,
               std::uint32_t offset) {
    const std::vector<std::string> lines = acl_lines(descriptor, offset);
    if (lines.empty()) {
        return;
    }
    out << '\n' << prefix << heading << '\n';
    for (const std::string& line : lines) {
        out << prefix << line << '\n';
    }
}

}  // namespace

void ace_type_word(std::uint8_t type, std::string& out) {
    switch (type) {
        case 0:
        case 4:
        case 5:
            out = "access allowed";
            break;
        case 1:
        case 6:
            out = "access denied";
            break;
        case 2:
        case 7:
            out = "system audit";
            break;
        case 3:
        case 8:
            out = "system alarm";
            break;
        default:
            out = "unknown";
            break;
    }
}

void ace_mask_words(std::uint32_t mask, std::string& out) {
    struct mask_word {
        std::uint32_t bit;
        const char* word;
    };
    static constexpr mask_word words[] = {
        {0x80000000, "GENERIC_READ"},    {0x40000000, "GENERIC_WRITE"},
        {0x20000000, "GENERIC_EXECUTE"}, {0x10000000, "GENERIC_ALL"},
        {0x00010000, "DELETE"},          {0x00020000, "READ_CONTROL"},
        {0x00040000, "WRITE_DAC"},       {0x00080000, "WRITE_OWNER"},
        {0x00100000, "SYNCHRONIZE"},     {0x01000000, "ACCESS_SYSTEM_SECURITY"},
        {0x02000000, "MAXIMUM_ALLOWED"},
    };
    out.clear();
    for (const mask_word& entry : words) {
        if ((mask & entry.bit) != 0) {
            out += out.empty() ? "" : " | ";
            out += entry.word;
        }
    }
}

void acl_to_map(ace_map& map, byte_view descriptor, std::uint32_t acl_offset) {
    const acl_view acl(descriptor.from(acl_offset));
    byte_view rest = acl.aces();
    // Each turn takes at least eight bytes.
    for (std::uint16_t left = acl.ace_count(); left != 0; --left) {
        const ace_view ace(rest);
        if (!ace.is_whole()) {
            return;
        }
        add_ace(map, ace);
        rest = rest.from(ace.size());
    }
}

std::vector<std::string> acl_lines(byte_view descriptor, std::uint32_t acl_offset) {
    ace_map map;
    if (acl_offset != 0) {
        acl_to_map(map, descriptor, acl_offset);
    }
    std::vector<std::string> lines;
    lines.reserve(map.size());
    for (const auto& [key, line] : map) {
        lines.push_back(text_of(line));
    }
    return lines;
}

void print_security_descriptor(std::ostream& out, byte_view descriptor, std::string_view prefix) {
    const security_descriptor_view view(descriptor);
    out << prefix << "Security Identifiers\n";
    std::uint64_t available = descriptor.size();
    if (view.owner_offset() != 0) {
        print_sid(out, prefix, "owner sid", descriptor, view.owner_offset(), available);
        // Deliberate: the group may use the bytes from its start less as many as the owner takes, wherever
        // the two are, not all of them. The user sees no group if too few are left.
        const std::uint64_t owner_length = sid_view(descriptor.from(view.owner_offset())).length();
        available -= std::min(available, owner_length);
    }
    if (view.group_offset() != 0) {
        print_sid(out, prefix, "group sid", descriptor, view.group_offset(), available);
    }
    print_acl(out, prefix, "System Access Control List", descriptor, view.sacl_offset());
    print_acl(out, prefix, "Discretionary Access Control List", descriptor, view.dacl_offset());
}

}  // namespace quarry
