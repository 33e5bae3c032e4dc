#include "frontend/copy/copy_messages.h"

#include "foundation/ql_string.h"
#include "foundation/visible_text.h"
#include "frontend/output/console.h"

#include <cstdio>

namespace quarry {

void print_copy_message(cmd_params& opts, const std::string& text) {
    const std::string line = visible_text(text);
    opts.m_log.log_text(line);
    if (opts.m_console) {
        std::puts(line.c_str());
        flush_output();
    }
}

void print_copy_failed(cmd_params& opts, const std::wstring& source, const std::wstring& destination) {
    print_copy_message(opts, "err: copy failed: " + narrow(source) + " -> " + narrow(destination));
}

void print_outcome(cmd_params& opts, bool success, const std::string& text) {
    if (success) {
        opts.m_log.log("info: %s", text.c_str());
    } else {
        opts.m_log.log("err: %s", text.c_str());
    }
    if (opts.m_console) {
        print_error(visible_text(text) + "\n");
    }
}

}  // namespace quarry
