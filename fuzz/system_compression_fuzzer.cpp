// Chunks of files that the system compressed, decoded by both decoders and compared with ones that are slow
// and easy to see through. The first byte of the input chooses a codec and whether its codes are part of the
// input; with codes of the builders, every change of a byte is one of symbols. Or a reparse point.
#include "exact/lzx.h"
#include "exact/system_compression.h"
#include "exact/xpress.h"
#include "fuzz/input_bytes.h"
#include "support/expect.h"
#include "support/lzx_builder.h"
#include "support/slow_system_compression.h"
#include "support/xpress_builder.h"

#include <cstddef>
#include <cstdint>
#include <optional>

namespace {

using namespace quarry::exact;
using quarry::byte_view;
using quarry::fuzz::input_bytes;
using quarry::fuzz::lone_bytes;
using quarry::test::bytes;
using quarry::test::expect;

template <typename Decoder>
void compare(const bytes& stored, std::size_t size, std::optional<bytes> (*slow)(const bytes&, std::size_t)) {
    static Decoder decoder;  // what one chunk leaves must not matter to the next
    const lone_bytes alone{byte_view(stored)};
    const bytes nothing(size);
    lone_bytes plain{byte_view(nothing)};
    const auto decoded = decoder.decode(alone.view(), plain.span(), "record 40", 0);
    const std::optional<bytes> expected = slow(stored, size);
    expect(decoded.has_value() == expected.has_value());
    expect(!expected || plain.view().to_vector() == *expected);
}

void decode_xpress(const bytes& stored, std::size_t size) {
    compare<xpress_decoder>(stored, size, quarry::test::slow_xpress_chunk);
}

void decode_lzx(const bytes& stored, std::size_t size) {
    compare<lzx_decoder>(stored, size, quarry::test::slow_lzx_chunk);
}

void read_reparse_value(const bytes& value) {
    const auto point = read_reparse_point(byte_view(value), "record 40");
    if (point && point->tag == tag_wof) {
        const auto format = read_wof_format(*point, "record 40");
        expect(format ? chunk_size(*format) >= 4096 : !format.error().why.empty());
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    input_bytes input(data, size);
    const unsigned kind = input.u8() % 6;
    const std::size_t plain_size = 1 + input.u16() % 32768;
    const bytes rest = input.rest().to_vector();
    const auto after = [&](const bytes& codes) { return quarry::test::concat({codes, rest}); };
    switch (kind) {
        case 0:
            decode_xpress(rest, plain_size);
            break;
        case 1:
            decode_xpress(after(quarry::test::xpress_builder().build()), plain_size);
            break;
        case 2:
            decode_lzx(rest, plain_size);
            break;
        case 3:
            decode_lzx(after(quarry::test::lzx_builder().verbatim(plain_size).build()), plain_size);
            break;
        case 4:
            decode_lzx(after(quarry::test::lzx_builder().aligned(plain_size).build()), plain_size);
            break;
        default:
            read_reparse_value(rest);
            break;
    }
    return 0;
}
