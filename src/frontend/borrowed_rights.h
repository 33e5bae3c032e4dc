// Rights that the program's file gives and its caller does not have.
//
// A copy tool that was installed setuid or setgid would hand every file that its owner can read or write to
// everybody who can start it: the sources, the destinations, the status log. So it does not run at all then.
#pragma once

#include <sys/types.h>

namespace quarry {

struct user_and_group {
    ::uid_t user = 0;
    ::gid_t group = 0;
};

// True if the user or the group that counts for the system is not the one who started the program.
[[nodiscard]] bool are_borrowed(const user_and_group& real, const user_and_group& effective);

// The same for this process.
[[nodiscard]] bool has_borrowed_rights();

}  // namespace quarry
