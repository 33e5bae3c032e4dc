// An amount that can be used up: bytes of memory, bytes to read, steps of a walk.
//
// What a source claims costs its maker nothing: a record may name the same list a thousand times, a list the
// same record. So whatever is read, kept or walked at the word of a source is paid for out of a budget, and
// whoever spends it looks at it before each further step. What is paid may be more than what is left: the
// step that uses the budget up is the last.
#pragma once

#include <algorithm>
#include <cstdint>
#include <limits>

namespace quarry {

class budget {
  public:
    static constexpr std::uint64_t unlimited = std::numeric_limits<std::uint64_t>::max();

    explicit constexpr budget(std::uint64_t amount) : m_left(amount) {}
    // A share of a larger budget, which must outlive it: what is taken here is taken there as well, so it is
    // spent when one of the two is.
    constexpr budget(std::uint64_t amount, budget& whole) : m_left(amount), m_whole(&whole) {}

    // Takes an amount, or what is left if that is less. Returns what was taken.
    constexpr std::uint64_t take(std::uint64_t amount) {
        const std::uint64_t taken = std::min(amount, left());
        if (m_whole != nullptr) {
            m_whole->take(taken);
        }
        m_left -= taken;
        return taken;
    }
    [[nodiscard]] constexpr bool spent() const { return left() == 0; }
    [[nodiscard]] constexpr std::uint64_t left() const {
        return m_whole == nullptr ? m_left : std::min(m_left, m_whole->left());
    }

  private:
    std::uint64_t m_left;
    budget* m_whole = nullptr;
};

}  // namespace quarry
