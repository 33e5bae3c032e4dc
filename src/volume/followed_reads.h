// How far the attribute lists of one entry are followed.
#pragma once

#include "foundation/budget.h"
#include "volume/limits.h"

#include <cstdint>

namespace quarry {

class followed_reads {
  public:
    // Counts the read of a list or of a record that a list names.
    void count(std::uint64_t bytes) {
        m_reads.take(1);
        m_bytes.take(bytes);
    }
    // Counts an attribute that was found in such a record.
    void count_attribute(std::uint64_t bytes) { m_attribute_bytes.take(bytes); }
    // A number of reads is always made, so only bytes and reads together end it.
    [[nodiscard]] bool may_go_on() const {
        return !(m_bytes.spent() && m_reads.spent()) && !m_attribute_bytes.spent();
    }

  private:
    budget m_reads{limits::followed_reads};
    budget m_bytes{limits::followed_bytes};
    budget m_attribute_bytes{limits::followed_attribute_bytes};
};

}  // namespace quarry
