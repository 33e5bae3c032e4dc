// A set of MFT entry numbers: the children of a directory.
//
// It is filled in the order of an index, which is that of the names, and walked in the order of the numbers.
// So it is a plain list that is put in order when it is first looked at.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <vector>

namespace quarry {

class _inode_collection {
  public:
    _inode_collection() = default;
    _inode_collection(std::initializer_list<std::uint64_t> entries);

    void insert(std::uint64_t entry);
    void clear();

    [[nodiscard]] bool empty() const { return m_entries.empty(); }
    // Numbers in the set, each counted once.
    [[nodiscard]] std::size_t size() const { return in_order().size(); }
    // At least size(), without putting anything in order.
    [[nodiscard]] std::size_t held() const { return m_entries.size(); }
    // The numbers, ascending, side by side. Good until the next insert.
    [[nodiscard]] const std::uint64_t* begin() const { return in_order().data(); }
    [[nodiscard]] const std::uint64_t* end() const { return begin() + m_entries.size(); }

  private:
    [[nodiscard]] const std::vector<std::uint64_t>& in_order() const;
    void put_in_order() const;

    // Ascending and without doubles up to `m_ordered`, after that in the order in which they came.
    mutable std::vector<std::uint64_t> m_entries;
    mutable std::size_t m_ordered = 0;
};

}  // namespace quarry
