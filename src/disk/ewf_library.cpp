#include "disk/ewf_library.h"

#ifdef QUARRY_BUILT_WITH_EWF

#include <dlfcn.h>
#include <sys/auxv.h>

namespace quarry {

namespace {

template <typename function>
bool find(void* loaded, const char* name, function& found) {
    found = reinterpret_cast<function>(::dlsym(loaded, name));  // what dlsym is for
    return found != nullptr;
}

bool find_all(void* loaded, ewf_library& library) {
    return find(loaded, "libewf_glob", library.glob) && find(loaded, "libewf_glob_free", library.glob_free) &&
           find(loaded, "libewf_error_sprint", library.error_sprint) &&
           find(loaded, "libewf_error_free", library.error_free) &&
           find(loaded, "libewf_handle_initialize", library.handle_initialize) &&
           find(loaded, "libewf_handle_free", library.handle_free) &&
           find(loaded, "libewf_handle_open", library.handle_open) &&
           find(loaded, "libewf_handle_close", library.handle_close) &&
           find(loaded, "libewf_handle_read_random", library.handle_read_random) &&
           find(loaded, "libewf_handle_segment_files_corrupted", library.handle_segment_files_corrupted) &&
           find(loaded, "libewf_handle_get_bytes_per_sector", library.handle_get_bytes_per_sector) &&
           find(loaded, "libewf_handle_get_media_size", library.handle_get_media_size) &&
           find(loaded, "libewf_handle_get_number_of_checksum_errors",
                library.handle_get_number_of_checksum_errors) &&
           find(loaded, "libewf_handle_get_checksum_error", library.handle_get_checksum_error) &&
           find(loaded, "libewf_handle_get_number_of_acquiry_errors",
                library.handle_get_number_of_acquiry_errors) &&
           find(loaded, "libewf_handle_get_acquiry_error", library.handle_get_acquiry_error) &&
           find(loaded, "libewf_handle_get_utf8_hash_value", library.handle_get_utf8_hash_value);
}

ewf_library loaded_library() {
    ewf_library library;
    void* const loaded =
        ewf_library::can_be_loaded() ? ::dlopen("libewf.so.2", RTLD_NOW | RTLD_LOCAL) : nullptr;
    return loaded != nullptr && find_all(loaded, library) ? library : ewf_library{};
}

}  // namespace

// The kernel has loaded a loader beside the program, or has not.
bool ewf_library::can_be_loaded() {
    return ::getauxval(AT_BASE) != 0;
}

const ewf_library* ewf_library::load() {
    static const ewf_library library = loaded_library();
    return library.handle_get_utf8_hash_value != nullptr ? &library : nullptr;
}

}  // namespace quarry

#endif
