// Whole reads of a source, or the byte that failed.
//
// A byte source may bring fewer bytes than it was asked for. Nothing of the strict reader can go on with
// that, so this is the one place that looks at the count: a read is whole, or it is a failure that names the
// first byte of the source that did not come.
//
//     asked for:   |<------------- buffer ------------->|
//     came:        |XXXXXXXXXXXXXXXX|
//                                   ^ source-read (an error), or source-end (no more bytes)
#pragma once

#include "disk/byte_source.h"
#include "exact/failure.h"

#include <cstdint>
#include <span>
#include <string>

namespace quarry::exact {

class exact_source {
  public:
    // `bytes` must outlive the object. `shown_path` is the source's name in messages.
    exact_source(byte_source& bytes, std::string shown_path);

    // Fills the buffer from byte `offset` of the source on. Fails with source-read, whose place is
    // "source P" until a caller names a better one, or with source-end.
    [[nodiscard]] result<void> read(std::span<std::uint8_t> buffer, std::uint64_t offset) const;

    // In bytes.
    [[nodiscard]] std::uint64_t size() const { return m_bytes->size(); }
    [[nodiscard]] const std::string& path() const { return m_path; }
    [[nodiscard]] byte_source& bytes() const { return *m_bytes; }

  private:
    byte_source* m_bytes;
    std::string m_path;
};

}  // namespace quarry::exact
