#include "report/report_file.h"

#include "foundation/uni_fileio.h"

#include <fcntl.h>
#include <unistd.h>

namespace quarry {

namespace {

constexpr ::mode_t new_file_mode = 0666;

}  // namespace

bool open_report(uni::ofstream& report, const std::wstring& path) {
    const int probe = uni::open_file(path, O_WRONLY | O_CREAT | O_CLOEXEC, new_file_mode);
    if (probe < 0) {
        return false;
    }
    ::close(probe);
    report.open(path);
    return report.is_open();
}

}  // namespace quarry
