#include "frontend/options/quarry_opts.h"

#include "frontend/output/console.h"

#include <unistd.h>

namespace quarry {

bool is_administrator() {
    return ::getuid() == 0 || ::geteuid() == 0;
}

bool quarry_opts::pass_gate() const {
    if (!m_admin) {
        print_error("Need Admin privs to use this option\n");
    }
    return m_admin;
}

}  // namespace quarry
