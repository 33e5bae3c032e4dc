// Where the bytes of a copy go: an output stream, and on request a digest of the same bytes.
#pragma once

#include "foundation/byte_view.h"
#include "foundation/md5.h"

#include <cstddef>
#include <ios>
#include <ostream>

namespace quarry {

class stream_sink {
  public:
    // `digest` may be null. Both must outlive the sink.
    stream_sink(std::ostream& out, md5_ctx* digest) : m_out(out), m_digest(digest) {}

    // Digests the bytes and hands them to the stream in one piece.
    void write(byte_view bytes) {
        if (m_digest != nullptr) {
            md5_update(m_digest, bytes.data(), bytes.size());
        }
        const auto* const text = static_cast<const char*>(static_cast<const void*>(bytes.data()));
        m_out.write(text, static_cast<std::streamsize>(bytes.size()));
    }
    // The stream takes nothing more: a full disk, a closed pipe.
    [[nodiscard]] bool has_failed() const { return !m_out.good(); }

  private:
    std::ostream& m_out;
    md5_ctx* m_digest;
};

}  // namespace quarry
