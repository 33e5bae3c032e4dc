// The library that reads EWF images, libewf, loaded when such an image is named and only then.
//
// The program needs nothing but the C library to start. Where libewf is not installed, where the program was
// built without its header, and in the static program, which can load nothing, there is no library, and an
// EWF image is refused.
#pragma once

#if __has_include(<libewf.h>)

#include <libewf.h>

#define QUARRY_BUILT_WITH_EWF 1

namespace quarry {

// The functions that are used, under their own names without "libewf_".
struct ewf_library {
    decltype(&::libewf_glob) glob = nullptr;
    decltype(&::libewf_glob_free) glob_free = nullptr;
    decltype(&::libewf_error_sprint) error_sprint = nullptr;
    decltype(&::libewf_error_free) error_free = nullptr;
    decltype(&::libewf_handle_initialize) handle_initialize = nullptr;
    decltype(&::libewf_handle_free) handle_free = nullptr;
    decltype(&::libewf_handle_open) handle_open = nullptr;
    decltype(&::libewf_handle_close) handle_close = nullptr;
    decltype(&::libewf_handle_read_random) handle_read_random = nullptr;
    decltype(&::libewf_handle_segment_files_corrupted) handle_segment_files_corrupted = nullptr;
    decltype(&::libewf_handle_get_bytes_per_sector) handle_get_bytes_per_sector = nullptr;
    decltype(&::libewf_handle_get_media_size) handle_get_media_size = nullptr;
    decltype(&::libewf_handle_get_number_of_checksum_errors) handle_get_number_of_checksum_errors = nullptr;
    decltype(&::libewf_handle_get_checksum_error) handle_get_checksum_error = nullptr;
    decltype(&::libewf_handle_get_number_of_acquiry_errors) handle_get_number_of_acquiry_errors = nullptr;
    decltype(&::libewf_handle_get_acquiry_error) handle_get_acquiry_error = nullptr;
    decltype(&::libewf_handle_get_utf8_hash_value) handle_get_utf8_hash_value = nullptr;

    // False in a static program: it would load a second C library beside the one that it holds.
    [[nodiscard]] static bool can_be_loaded();
    // Loads the library; it stays for the rest of the run. Null if there is none or it lacks a function.
    [[nodiscard]] static const ewf_library* load();
};

}  // namespace quarry

#endif
