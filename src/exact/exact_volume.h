// One open volume: what is read once and shared by all copies.
//
//     byte source -> exact_source -> geometry -> $MFT -> state      read when the volume is opened
//                                                 |-> $UpCase       read when a name is first looked up
//                                                 '-> $Bitmap       read when clusters are first compared
#pragma once

#include "exact/allocation.h"
#include "exact/boot.h"
#include "exact/exact_source.h"
#include "exact/failure.h"
#include "exact/mft.h"
#include "exact/upcase.h"
#include "exact/volume_bytes.h"
#include "exact/volume_state.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace quarry::exact {

class exact_volume {
  public:
    // Opens the volume at byte `volume_offset` of the source, which may reach over `length_available` bytes.
    // `bytes` must outlive the volume. Warns (source-short) if the source ends before the volume does. Fails
    // as the boot sector and $MFT do.
    [[nodiscard]] static result<std::unique_ptr<exact_volume>> open(byte_source& bytes,
                                                                    std::string shown_path,
                                                                    std::uint64_t volume_offset,
                                                                    std::uint64_t length_available,
                                                                    notices& told);
    exact_volume(const exact_volume&) = delete;
    exact_volume& operator=(const exact_volume&) = delete;
    ~exact_volume() = default;

    [[nodiscard]] const exact_source& source() const { return m_source; }
    [[nodiscard]] const geometry& shape() const { return m_bytes.shape(); }
    [[nodiscard]] const volume_bytes& bytes() const { return m_bytes; }
    [[nodiscard]] const mft& table() const { return *m_table; }
    [[nodiscard]] const volume_state& state() const { return m_state; }
    // Call it before a log or a manifest says what the state is: of an empty journal only the start was read.
    void check_empty_journal(notices& told) { exact::check_empty_journal(m_state, *m_table, told); }

    // Read at the first call, kept afterwards; a failure is kept too. Its warnings go to the first caller.
    [[nodiscard]] const result<upcase>& upper_case(notices& told);
    [[nodiscard]] const result<allocation>& bitmap(notices& told);

  private:
    struct only_by_open {};

  public:
    exact_volume(byte_source& bytes, std::string shown_path, only_by_open)
        : m_source(bytes, std::move(shown_path)), m_bytes(m_source, {}) {}

  private:
    exact_source m_source;
    volume_bytes m_bytes;
    std::optional<mft> m_table;  // always there once open() has returned
    volume_state m_state;
    std::optional<result<upcase>> m_upcase;
    std::optional<result<allocation>> m_bitmap;
};

}  // namespace quarry::exact
