// The source of a run, opened for reading.
#pragma once

#include "disk/byte_source.h"
#include "disk/ewf_source.h"
#include "disk/file_source.h"
#include "exact/failure.h"
#include "frontend/exact/exact_options.h"

#include <istream>
#include <memory>
#include <set>
#include <string>
#include <sys/types.h>
#include <vector>

namespace quarry::exact {

// The devices of the mounts, as /proc/self/mountinfo lists them: "36 35 98:0 /root /mnt ...".
[[nodiscard]] std::set<::dev_t> mounted_devices(std::istream& mounts);

struct opened_source {
    std::shared_ptr<byte_source> bytes;
    std::string shown_path;
    // The files that the bytes come from, to see whether they change. A raw image is itself the bytes.
    std::vector<std::shared_ptr<file_source>> files;
    bool mounted = false;       // a block device that this system has mounted
    ewf_source* ewf = nullptr;  // the bytes, if they are those of an EWF image

    // Digests of an EWF image that were stored when the disk was acquired, in hexadecimal; empty if there are
    // none.
    std::string acquired_md5 = {};
    std::string acquired_sha1 = {};

    // True if one of the files has another size or modification time than when it was opened.
    [[nodiscard]] bool has_changed() const;
};

// The files that a source is read from: those that the user named, and of an EWF image all of its segments.
// Opens a file only to see whether it is one. Fails with source-open for an EWF image that cannot be read
// because the library is missing or the first segment is not called as one.
[[nodiscard]] result<std::vector<std::string>> files_of_source(const source_choice& choice);

// Opens what the user named, given the files that it is read from. Warns (source-mounted) of a block device
// that is mounted, or has a partition that is. Fails with source-open for what cannot be opened and for
// containers, with vmdk for files that are no whole, sound chain.
[[nodiscard]] result<opened_source> open_source(const source_choice& choice,
                                                const std::vector<std::string>& files, notices& told);

}  // namespace quarry::exact
