// A volume with streams of three to four mebibytes in every way in which a stream is stored, some of them
// damaged:
//
//     entry 24  /plain          in clusters
//           25  /holes          with two holes
//           26  /lznt1          in 48 units of text, noise and holes
//           27  /lznt1-broken   units 20, 21 and 40 of it do not decode
//           28  /lznt1-short    units 5, 6 and 33 have a chunk that is too short
//           29  /xpress         compressed by the system, in chunks of 16 KiB
//           30  /xpress-broken  chunks 100 and 101 of it do not decode
//           31  /lzx            compressed by the system, in chunks of 32 KiB
//           32  /lznt1-lost     the source ends inside of unit 46
#pragma once

#include "support/volume_builder.h"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace quarry::test {

class long_streams {
  public:
    long_streams();

    // The bytes of the source.
    [[nodiscard]] bytes image() const;
    // The bytes of a file as they are without damage.
    [[nodiscard]] const bytes& content(const std::string& name) const { return m_content.at(name); }

  private:
    void add_holes();
    void add_units(const std::string& name, const std::vector<int>& broken,
                   const std::vector<int>& too_short);
    void add_chunks(const std::string& name, std::uint32_t format, int count, const std::vector<int>& broken);
    [[nodiscard]] std::int64_t take(std::size_t clusters);

    volume_builder m_volume;
    std::map<std::string, bytes> m_content;
    std::int64_t m_free = 3500;  // the first cluster after what the builder places
};

}  // namespace quarry::test
