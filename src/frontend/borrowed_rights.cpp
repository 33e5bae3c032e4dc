#include "frontend/borrowed_rights.h"

#include <unistd.h>

namespace quarry {

bool are_borrowed(const user_and_group& real, const user_and_group& effective) {
    return real.user != effective.user || real.group != effective.group;
}

bool has_borrowed_rights() {
    return are_borrowed({::getuid(), ::getgid()}, {::geteuid(), ::getegid()});
}

}  // namespace quarry
