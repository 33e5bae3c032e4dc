// What a run reads: an image, a partition, a physical drive or a virtual disk, and where on it the volume
// begins.
//
// A source is a value. It says what the user named. Nothing is opened before it is asked to, and what was
// opened to check it stays open as long as a copy of the value holds it. How each kind is opened, which files
// of the host belong to it and how it is named in the log and in reports is decided here. One other place
// looks at the kind: a copy from a drive follows a table of rules of its own, see copy_rules.cpp.
#pragma once

#include "disk/raw_disk_io.h"
#include "foundation/status_log.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace quarry {

// What CNtfs::m_source_type says of a source. A virtual disk has 0.
inline constexpr std::uint8_t source_type_letter = 32;  // "c:" or "c:\", opened as its letter and a colon
inline constexpr std::uint8_t source_type_path = 33;    // an image or a device
inline constexpr std::uint8_t source_type_drive = 34;   // a physical drive by number
inline constexpr std::uint8_t source_type_device_name = 35;  // a path that begins with two backslashes
inline constexpr std::uint8_t last_source_type = 36;
inline constexpr std::uint8_t source_type_refused = 255;

enum class source_kind { none, image, partition, drive, virtual_disk };

struct source {
    source_kind kind = source_kind::none;
    std::vector<std::wstring> paths;  // as the user named them: one, or the files of a virtual disk
    std::int32_t drive = -1;          // number of a drive, 0 for the first
    std::uint64_t offset = 0;         // bytes from the start of the source to the volume
    std::uint8_t type = 0;            // see source_type_letter
    // What was opened while the source was checked: read on, not opened again. Null where nothing was kept.
    std::shared_ptr<const opened_bytes> kept_open = {};

    // A source of any kind that has one path. "c:" and "c:\" are letter forms.
    //
    // Deliberate: for a partition a colon after any first character makes a letter form of a text of any
    // length. So the path "a:b" is opened as the file "a:".
    [[nodiscard]] static source of_one_path(source_kind kind, const std::wstring& path);
    // An image.
    [[nodiscard]] static source of_image(const std::wstring& path, std::uint64_t offset);
    // A partition by its device; the volume begins where the device does.
    [[nodiscard]] static source of_partition(const std::wstring& path);
    // A path of a given type, of which 32, 33 and 35 can be opened.
    [[nodiscard]] static source of_path(const std::wstring& path, std::uint8_t type, std::uint64_t offset);
    [[nodiscard]] static source of_drive(std::int32_t drive, std::uint64_t offset);
    // With an offset of 0, or one that is negative as a signed number, the volume begins where the first
    // partition of the disk does.
    [[nodiscard]] static source of_virtual_disk(const std::vector<std::wstring>& files, std::uint64_t offset);
    // The partition that a path on a volume names by itself, as "c:\dir\file" and "\\.\device" do; a
    // partition without a name for any other path.
    [[nodiscard]] static source named_by(const std::wstring& path);

    // True if the user named a source, even if the option had no value.
    [[nodiscard]] bool is_given() const { return kind != source_kind::none; }
    // True if there is nothing to open, so that a path on the volume has to name it.
    [[nodiscard]] bool is_left_to_the_path() const;
    // True if a path on the volume is a path of this host, which is made absolute.
    [[nodiscard]] bool has_paths_of_host() const;
    // The partition's path; empty for any other kind.
    [[nodiscard]] std::wstring partition() const;

    // Opens the source. Null if there is nothing to open, and for a path of another type than 32, 33 and 35.
    // What cannot be read may still give an object, see RAW_DISK_IO.
    [[nodiscard]] std::unique_ptr<RAW_DISK_IO> open(bool writable = false) const;
    // The same with a letter form taken for the name of a file like any other, as the search for volumes
    // does.
    [[nodiscard]] std::unique_ptr<RAW_DISK_IO> open_as_named() const;
    // Opens an image by path, for this value and the copies of it that are made from now on: what was looked
    // at is then what is read, and nobody can put another file there in between. Does nothing for another
    // kind, a letter form, a device name and what cannot be opened.
    void keep_open();
    // Where the volume begins on the opened source, in bytes. A virtual disk keeps it as its origin.
    [[nodiscard]] std::uint64_t settle_offset(RAW_DISK_IO& opened) const;
    // The line for a source that open_as_named could not make usable.
    [[nodiscard]] std::string unusable_words() const;

    // The source that clusters are read from: a partition is opened as an image is.
    [[nodiscard]] source for_clusters() const;
    // True if clusters are read from the first drive where this source cannot be opened.
    [[nodiscard]] bool gives_way_to_first_drive() const;

    // The files and devices of the host that are read: no output may go to them. Also what a letter form is
    // opened as. Those that do not exist are among them.
    [[nodiscard]] std::vector<std::string> files() const;
    // Writes the line that says what is opened.
    void log_words(status_log& log) const;
    // How the head of a cluster report names the source.
    [[nodiscard]] std::string report_text() const;
};

// Adds the volume that a path names by itself: "c:" for "c:\dir\file", and the path as it is for
// "\\.\device". Other paths name none.
void add_named_volume(std::vector<std::string>& files, const std::string& path);

}  // namespace quarry
