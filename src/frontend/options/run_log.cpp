#include "frontend/options/run_log.h"

#include "foundation/ql_string.h"

#include <utility>

namespace quarry {

bool run_log::open(output_guard& guard, const std::string& path) {
    auto stream = std::make_unique<output_file>();
    if (!stream->open(guard, widen(path), output_kind::log)) {
        return false;
    }
    m_stream = std::move(stream);
    m_path = path;
    return true;
}

void run_log::write_log_line(const std::string& text) {
    *m_stream << "->" << text << "\n" << std::flush;
}

}  // namespace quarry
