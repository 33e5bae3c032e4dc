#include "disk/ewf_source.h"

#include "disk/ewf_library.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <iterator>
#include <limits>
#include <sys/stat.h>

namespace quarry {

bool begins_as_ewf(byte_view head) {
    return head.text_at(0, std::string_view("EVF\x09\x0d\x0a\xff\0", 8)) || head.text_at(0, "EVF2");
}

#ifdef QUARRY_BUILT_WITH_EWF

namespace {

// What a call of the library says of its failure.
class ewf_error {
  public:
    explicit ewf_error(const ewf_library& library) : m_library(library) {}
    ewf_error(const ewf_error&) = delete;
    ewf_error& operator=(const ewf_error&) = delete;
    ~ewf_error() { m_library.error_free(&m_error); }

    [[nodiscard]] libewf_error_t** out() { return &m_error; }
    [[nodiscard]] std::string text() const {
        std::array<char, 512> buffer{};
        if (m_error == nullptr || m_library.error_sprint(m_error, buffer.data(), buffer.size()) <= 0) {
            return "libewf does not say why";
        }
        std::string text = buffer.data();
        // The library ends some of its sentences and not others.
        if (text.ends_with('.')) {
            text.pop_back();
        }
        return text;
    }

  private:
    const ewf_library& m_library;
    libewf_error_t* m_error = nullptr;
};

libewf_handle_t* handle_of(void* handle) {
    return static_cast<libewf_handle_t*>(handle);
}

// Deflate makes at most 1,032 bytes of one.
constexpr std::uint64_t largest_growth = 1032;

std::uint64_t bytes_of_files(const std::vector<std::string>& paths) {
    std::uint64_t sum = 0;
    for (const std::string& path : paths) {
        struct ::stat status {};
        sum += ::stat(path.c_str(), &status) == 0 ? static_cast<std::uint64_t>(status.st_size) : 0;
    }
    return sum;
}

// What came of `asked` bytes from byte `offset` on, as far as it is not damaged.
read_outcome up_to_damage(read_outcome came, const damaged_ranges& damage, std::uint64_t offset,
                          std::uint64_t asked) {
    if (const auto range = damage.first_between(offset, offset + came.bytes)) {
        came.bytes = static_cast<std::size_t>(range->first - offset);
        came.error = EIO;
        came.lost = static_cast<std::size_t>(std::min(range->end, offset + asked) - range->first);
    }
    return came;
}

bool is_sector_size(std::uint32_t size) {
    return size >= 512 && size <= 4096 && std::has_single_bit(size);
}

std::string library_is_missing() {
    return std::string(ewf_needs_library) +
           (ewf_library::can_be_loaded()
                ? ""
                : "; a static program cannot load it, the program of the package can");
}

}  // namespace

std::vector<std::string> ewf_segments(const std::string& path, std::string& why) {
    const ewf_library* const library = ewf_library::load();
    if (library == nullptr) {
        why = library_is_missing();
        return {};
    }
    ewf_error error(*library);
    char** names = nullptr;
    int count = 0;
    if (library->glob(path.c_str(), path.size(), LIBEWF_FORMAT_UNKNOWN, &names, &count, error.out()) != 1 ||
        count < 1) {
        why = "is not called like the first segment of an EWF image, as disk.E01 is";
        return {};
    }
    std::vector<std::string> segments(names, names + count);
    static_cast<void>(library->glob_free(names, count, nullptr));
    return segments;
}

ewf_source::ewf_source(void* handle) : m_handle(handle) {}

ewf_source::~ewf_source() {
    const ewf_library* const library = ewf_library::load();
    libewf_handle_t* handle = handle_of(m_handle);
    static_cast<void>(library->handle_close(handle, nullptr));
    static_cast<void>(library->handle_free(&handle, nullptr));
}

std::unique_ptr<ewf_source> ewf_source::open(const std::vector<std::string>& segments, std::string& why) {
    const ewf_library* const library = ewf_library::load();
    if (library == nullptr) {
        why = library_is_missing();
        return nullptr;
    }
    ewf_error error(*library);
    libewf_handle_t* handle = nullptr;
    if (library->handle_initialize(&handle, error.out()) != 1) {
        why = "cannot be opened: " + error.text();
        return nullptr;
    }
    auto source = std::make_unique<ewf_source>(handle);
    // The interface wants names that may be written to, and does not write.
    std::vector<std::string> owned = segments;
    std::vector<char*> names;
    std::transform(owned.begin(), owned.end(), std::back_inserter(names),
                   [](std::string& name) { return name.data(); });
    if (library->handle_open(handle, names.data(), static_cast<int>(names.size()), LIBEWF_OPEN_READ,
                             error.out()) != 1) {
        why = "cannot be opened: " + error.text();
        return nullptr;
    }
    // The library opens a set with a segment missing as well.
    if (library->handle_segment_files_corrupted(handle, error.out()) != 0) {
        why = "cannot be opened: a segment file is missing or damaged";
        return nullptr;
    }
    if (!source->read_facts(segments)) {
        why = "cannot be opened: it does not say its size, or what could not be acquired";
        return nullptr;
    }
    return source;
}

bool ewf_source::read_facts(const std::vector<std::string>& segments) {
    const ewf_library* const library = ewf_library::load();
    std::uint32_t sector = 0;
    ::size64_t size = 0;
    if (library->handle_get_media_size(handle_of(m_handle), &size, nullptr) != 1 ||
        size > std::uint64_t{std::numeric_limits<std::int64_t>::max()}) {
        return false;
    }
    if (library->handle_get_bytes_per_sector(handle_of(m_handle), &sector, nullptr) == 1 && sector != 0) {
        m_unit_of_damage = sector;
    }
    m_sector_size = is_sector_size(sector) ? sector : 512;
    m_size = size;
    const std::uint64_t stored = bytes_of_files(segments);
    m_content_size = stored > m_size / largest_growth ? m_size : stored * largest_growth;
    return take_acquisition_errors();
}

// What could not be read when the disk was acquired is filled with something that never was on it.
bool ewf_source::take_acquisition_errors() {
    const ewf_library* const library = ewf_library::load();
    std::uint32_t count = 0;
    if (library->handle_get_number_of_acquiry_errors(handle_of(m_handle), &count, nullptr) != 1) {
        return false;
    }
    for (std::uint32_t index = 0; index < count; ++index) {
        std::uint64_t first = 0;
        std::uint64_t sectors = 0;
        if (library->handle_get_acquiry_error(handle_of(m_handle), index, &first, &sectors, nullptr) != 1) {
            return false;
        }
        m_not_acquired.add(first * m_unit_of_damage, (first + sectors) * m_unit_of_damage);
    }
    return true;
}

read_outcome ewf_source::read(std::span<std::uint8_t> buffer, std::uint64_t offset) {
    return up_to_damage(read_as_stored(buffer, offset), m_not_acquired, offset, buffer.size());
}

read_outcome ewf_source::read_as_stored(std::span<std::uint8_t> buffer, std::uint64_t offset) {
    if (offset >= m_size) {
        return {};
    }
    const auto asked = static_cast<std::size_t>(std::min<std::uint64_t>(buffer.size(), m_size - offset));
    const ewf_library* const library = ewf_library::load();
    read_outcome came;
    // Ends: each turn brings a byte or is the last.
    while (came.bytes < asked) {
        const ::ssize_t count =
            library->handle_read_random(handle_of(m_handle), buffer.data() + came.bytes, asked - came.bytes,
                                        static_cast<::off64_t>(offset + came.bytes), nullptr);
        if (count <= 0) {
            came.error = EIO;
            break;
        }
        came.bytes += std::min(static_cast<std::size_t>(count), asked - came.bytes);
    }
    take_new_damage();
    return up_to_damage(came, m_damage, offset, asked);
}

// The library counts a chunk once and keeps no count of what it hands out later, so the ranges are kept here.
void ewf_source::take_new_damage() {
    const ewf_library* const library = ewf_library::load();
    std::uint32_t count = 0;
    if (library->handle_get_number_of_checksum_errors(handle_of(m_handle), &count, nullptr) != 1) {
        return;
    }
    for (; m_damage_count < count; ++m_damage_count) {
        std::uint64_t first = 0;
        std::uint64_t sectors = 0;
        if (library->handle_get_checksum_error(handle_of(m_handle), m_damage_count, &first, &sectors,
                                               nullptr) != 1) {
            m_damage.add(0, m_size);
        } else {
            m_damage.add(first * m_unit_of_damage, (first + sectors) * m_unit_of_damage);
        }
    }
}

std::string ewf_source::stored_digest(std::string_view kind) const {
    // 40 digits of SHA-1 and the zero that ends them.
    std::array<std::uint8_t, 64> text{};
    std::array<std::uint8_t, 8> name{};
    std::copy(kind.begin(), kind.end(), name.begin());
    if (ewf_library::load()->handle_get_utf8_hash_value(handle_of(m_handle), name.data(), kind.size(),
                                                        text.data(), text.size(), nullptr) != 1) {
        return {};
    }
    const auto end = std::find_if(text.begin(), text.end(), [](std::uint8_t digit) {
        return !((digit >= '0' && digit <= '9') || (digit >= 'a' && digit <= 'f'));
    });
    return {text.begin(), end};
}

#else

std::vector<std::string> ewf_segments(const std::string&, std::string& why) {
    why = std::string(ewf_needs_library) + "; this program was built without its header";
    return {};
}

ewf_source::ewf_source(void* handle) : m_handle(handle) {}

ewf_source::~ewf_source() = default;

std::unique_ptr<ewf_source> ewf_source::open(const std::vector<std::string>&, std::string& why) {
    why = std::string(ewf_needs_library) + "; this program was built without its header";
    return nullptr;
}

read_outcome ewf_source::read(std::span<std::uint8_t>, std::uint64_t) {
    return {.bytes = 0, .error = EIO};
}

read_outcome ewf_source::read_as_stored(std::span<std::uint8_t>, std::uint64_t) {
    return {.bytes = 0, .error = EIO};
}

std::string ewf_source::stored_digest(std::string_view) const {
    return {};
}

#endif

}  // namespace quarry
