// How much one listing reads to follow attribute lists.
//
// A file with an attribute list is read with all of its extension records, once for each of its names. A
// prepared volume has a list of 256 KiB and thousands of records for one file, and names it in every entry of
// every directory:
//
//     entry "a"  --.
//     entry "b"  ---+-->  record 40, its list  -->  records 1000 to 9000
//     entry "c"  --'
//
// On a sound volume few files have extension records, and these few have few names. So a listing may read 32
// times the content of the source for them. A small volume with a file of 1,024 long names, which is as many
// as the system allows, costs less than a gibibyte, and so much may be read of any source.
#pragma once

#include "exact/failure.h"

#include <cstdint>
#include <optional>
#include <string>

namespace quarry::exact {

class list_budget {
  public:
    static constexpr std::uint64_t read_for_a_byte = 32;
    static constexpr std::uint64_t always_read = 0x40000000;

    // `content_bytes`: of the source, see byte_source.
    explicit list_budget(std::uint64_t content_bytes)
        : m_left(content_bytes * read_for_a_byte + always_read) {}

    // Takes the bytes of a list, or of the records that it named. If there are not so many left, spent() says
    // so from then on.
    void take(std::uint64_t bytes, std::string where) {
        if (bytes <= m_left) {
            m_left -= bytes;
        } else if (!m_spent) {
            m_spent = failure{failure_code::list, std::move(where),
                              "the files have more extension records for all of their names than any sound "
                              "volume; the listing ends here",
                              std::nullopt};
        }
    }
    // Why nothing more may be read; nothing as long as something may.
    [[nodiscard]] const std::optional<failure>& spent() const { return m_spent; }

  private:
    std::uint64_t m_left;  // bytes
    std::optional<failure> m_spent;
};

}  // namespace quarry::exact
