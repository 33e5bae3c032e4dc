// The stream that a user copies: chosen by name, checked as a whole, delivered in order.
//
//     0                     valid length        size       allocated size
//     | data | hole | data  | zeros             |          |       as the file system gives it
//     | data | hole | data  | data  ................       |       raw: the clusters as they lie
//
// A compressed stream is delivered decoded, an encrypted one only raw. The data of a file that the system
// compressed is decoded from another stream of the file, see system_compression.h. The receiver gets bytes
// that were read and zeros for which nothing is stored by two calls, so that it can leave holes. What cannot
// be read fails the copy, or is zeros where the user has asked for that; then the ranges are reported.
#pragma once

#include "exact/attribute_set.h"
#include "exact/delivery.h"
#include "exact/exact_volume.h"
#include "exact/failure.h"
#include "exact/stored_stream.h"
#include "exact/system_compression.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace quarry::exact {

// What there is to say of a stream that was delivered whole.
struct delivery {
    std::uint64_t bytes = 0;
    // What is zeros because it could not be read; ascending, apart from each other.
    std::vector<byte_range> unread;
    // Of a deleted file with clusters: how many of them other files use now.
    std::optional<std::uint64_t> reused_clusters;
};

class stream {
  public:
    // The stream of this type and name. If no stream has the same units, one that is equal under $UpCase is
    // taken. Warns (cluster-twice) if the stream uses a cluster twice. Fails with no-stream, which lists the
    // names that there are, ambiguous, directory, and as stored_stream::join does. `volume` and `set` must
    // outlive the stream.
    [[nodiscard]] static result<stream> open(exact_volume& volume, const attribute_set& set,
                                             std::uint32_t type, std::u16string_view name, notices& told);
    // The unnamed $DATA of a file that the system compressed in this format, to be delivered decoded and not
    // raw. Fails as open() does, and with wof if what it is decoded from is missing.
    [[nodiscard]] static result<stream> open_system_compressed(exact_volume& volume, const attribute_set& set,
                                                               wof_format format, notices& told);
    // Clusters of the volume. Fails with outside.
    [[nodiscard]] static result<stream> of_clusters(exact_volume& volume, std::uint64_t lcn,
                                                    std::uint64_t count);

    // Sizes, flags, runs; reads of metadata at any offset.
    [[nodiscard]] const stored_stream& stored() const { return m_stored; }
    // What the bytes are decoded from, if the system compressed them; nothing for other streams, and for a
    // file without a byte.
    struct packed {
        stored_stream stored;
        wof_format format;
    };
    [[nodiscard]] const std::optional<packed>& system_compressed() const { return m_packed; }
    [[nodiscard]] std::uint32_t type() const { return m_type; }
    // As the volume has it, in units; empty for the unnamed stream.
    [[nodiscard]] const std::u16string& name() const { return m_name; }

    // Bytes that a delivery gives.
    [[nodiscard]] std::uint64_t delivered_size(bool raw) const {
        return raw ? m_stored.allocated_size() : m_stored.size();
    }
    // Hands all bytes to the sink. Fails with encrypted, unit, wof, with what the sink fails with, and if a
    // byte cannot be read. Doubts: zeros (zero_unreadable and something was unreadable), reused-clusters (a
    // deleted file), free-clusters, short-chunk.
    [[nodiscard]] result<delivery> deliver(stream_sink& sink, const delivery_options& options, notices& told);

  private:
    // Whose clusters they are, which decides what $Bitmap should say of them.
    enum class owner : std::uint8_t { file_in_use, deleted_file, nobody };

    stream(exact_volume& volume, stored_stream stored, std::uint32_t type, std::u16string name,
           owner owned_by)
        : m_volume(&volume),
          m_stored(std::move(stored)),
          m_type(type),
          m_name(std::move(name)),
          m_owner(owned_by) {}
    [[nodiscard]] result<std::optional<std::uint64_t>> compare_with_bitmap(const stored_stream& stored,
                                                                           notices& told) const;
    [[nodiscard]] result<void> deliver_valid(careful_reader& reader, stream_sink& sink,
                                             const delivery_options& options, notices& told) const;

    exact_volume* m_volume;
    stored_stream m_stored;
    std::optional<packed> m_packed;
    std::uint32_t m_type;
    std::u16string m_name;
    owner m_owner;
};

}  // namespace quarry::exact
