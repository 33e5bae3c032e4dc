// One source of the damage campaign and everything that is done to it: cut at every sector, each word of its
// metadata overwritten, bits flipped at random.
#pragma once

#include "support/byte_writer.h"
#include "support/memory_file.h"

#include <cstdint>
#include <string>
#include <vector>

namespace quarry::test {

enum class source_kind { bare_volume, mbr_disk, gpt_disk, virtual_disk };

struct source_shape {
    std::string name;
    source_kind kind = source_kind::mbr_disk;
    // A file that seems this long, and a volume or virtual disk that claims it; what is not content is a
    // hole. 0: as long as its content.
    std::uint64_t apparent_size = 0;
};

class damaged_source {
  public:
    // A source of this shape around a bare volume.
    damaged_source(source_shape shape, const bytes& volume);

    [[nodiscard]] source_kind kind() const { return m_shape.kind; }
    [[nodiscard]] std::wstring path() const { return m_file.path(); }
    // Cases that are listed one by one: every cut, and every word with every value. Any higher number is a
    // case of random bits, made from its number.
    [[nodiscard]] std::uint64_t listed_cases() const;
    // What a case does, for people.
    [[nodiscard]] std::string describe(std::uint64_t number) const;
    // The file holds the damage of this case and no other.
    void damage(std::uint64_t number);

  private:
    void hold_content() const;
    void restore();

    source_shape m_shape;
    bytes m_content;
    // Words of eight bytes that hold metadata.
    std::vector<std::uint64_t> m_words;
    // What the file has other than the content: positions of single words, and whether it is cut.
    std::vector<std::uint64_t> m_touched;
    bool m_cut = false;
    memory_file m_file{"damaged"};
};

}  // namespace quarry::test
