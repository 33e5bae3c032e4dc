#include "foundation/output_file.h"

#include "foundation/uni_fileio.h"

#include <fcntl.h>
#include <unistd.h>

namespace uni {

namespace {

constexpr ::mode_t new_file_mode = 0666;

}  // namespace

bool open_output(ofstream& out, const std::wstring& path) {
    const int probe = open_file(path, O_WRONLY | O_CREAT | O_CLOEXEC, new_file_mode);
    if (probe < 0) {
        return false;
    }
    ::close(probe);
    out.open(path);
    return out.is_open();
}

}  // namespace uni
