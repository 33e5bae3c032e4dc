// One source of the damage campaign and everything that is done to it: cut at every sector, each word of its
// metadata overwritten, bits flipped at random.
#pragma once

#include "support/byte_writer.h"
#include "support/memory_file.h"

#include <cstdint>
#include <string>
#include <vector>

namespace quarry::test {

enum class source_kind { mbr_disk, gpt_disk, virtual_disk };

class damaged_source {
  public:
    // The kind of source around a bare volume.
    damaged_source(source_kind kind, const bytes& volume);

    [[nodiscard]] source_kind kind() const { return m_kind; }
    [[nodiscard]] std::wstring path() const { return m_file.path(); }
    // Cases that are told one by one: every cut, and every word with every value. Any higher number is a case
    // of random bits, told by its number.
    [[nodiscard]] std::uint64_t listed_cases() const;
    // What a case does, for people.
    [[nodiscard]] std::string describe(std::uint64_t number) const;
    // The file holds the damage of this case and no other.
    void damage(std::uint64_t number);

  private:
    void restore();
    void put(std::uint64_t position, const bytes& content);

    source_kind m_kind;
    bytes m_content;
    // Words of eight bytes that hold metadata.
    std::vector<std::uint64_t> m_words;
    // What the file has other than the content: positions of single words, and whether it is cut.
    std::vector<std::uint64_t> m_touched;
    bool m_cut = false;
    memory_file m_file{"damaged"};
};

}  // namespace quarry::test
