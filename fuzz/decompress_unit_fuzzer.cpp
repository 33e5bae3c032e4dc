// Any bytes as a unit of a compressed stream.
//
// The first three bytes of the input choose the flags and the limit, the rest is the unit. The unit has an
// allocation of its own, so that a read past it is reported; that the outcome keeps its promises is checked
// besides.
#include "support/expect.h"
#include "volume/compressed_unit.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

namespace {

using quarry::test::expect;

class counted_output : public quarry::unit_output {
  public:
    void take(quarry::byte_view plain) override {
        m_size += plain.size();
        // Looks at every byte: none may be outside of what there is.
        for (const std::uint8_t byte : plain.span()) {
            m_sum += byte;
        }
    }
    std::uint64_t m_size = 0;
    std::uint64_t m_sum = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr std::size_t settings = 3;
    if (size < settings) {
        return 0;
    }
    const std::uint32_t flags = data[0] & 0xEu;
    const std::uint64_t limit = (data[1] | std::uint64_t{data[2]} << 8) * 4;
    const std::size_t unit_size = size - settings;
    const auto unit = std::make_unique<std::uint8_t[]>(unit_size);
    std::copy_n(data + settings, unit_size, unit.get());
    const quarry::byte_view view(unit.get(), unit_size);

    counted_output output;
    std::uint64_t written = 0;
    const bool ok = quarry::decompress_unit(output, written, view, limit, flags);
    expect(written == output.m_size);
    expect(written <= limit);
    expect(!ok || (unit_size > 0 && limit > 0));

    // The same again: nothing of the first time may show in the second.
    counted_output again;
    std::uint64_t written_again = 0;
    expect(quarry::decompress_unit(again, written_again, view, limit, flags) == ok);
    expect(written_again == written && again.m_sum == output.m_sum);
    return 0;
}
