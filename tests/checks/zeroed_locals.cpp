// Shows that locals which nothing initialises hold zeros: exit status 0 if they do. Built with the options of
// the library, like every file of it.
#include <cstddef>

namespace {

constexpr std::size_t size_of_both = 256;

[[gnu::noinline]] void leave_bytes_on_the_stack() {
    volatile unsigned char bytes[size_of_both];
    for (volatile unsigned char& byte : bytes) {
        byte = 0xAA;
    }
}

// The same place of the stack, as it is found.
[[gnu::noinline]] bool finds_zeros_on_the_stack() {
    volatile unsigned char bytes[size_of_both];
    unsigned found = 0;
    for (const volatile unsigned char& byte : bytes) {
        found |= byte;
    }
    return found == 0;
}

}  // namespace

int main() {
    leave_bytes_on_the_stack();
    return finds_zeros_on_the_stack() ? 0 : 1;
}
