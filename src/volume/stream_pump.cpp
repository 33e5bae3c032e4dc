#include "volume/stream_pump.h"

#include "foundation/md5.h"
#include "volume/attribute.h"
#include "volume/compressed_pump.h"
#include "volume/file_record.h"
#include "volume/index_layout.h"
#include "volume/stream_reader.h"
#include "volume/stream_sink.h"
#include "volume/transfer_unit.h"

#include <algorithm>
#include <new>
#include <span>
#include <vector>

namespace quarry {

namespace {

// Small units are moved several at once, up to this many bytes.
constexpr std::uint64_t transfer_size = std::uint64_t{64} << 10;

// One stream in clusters on its way out.
struct transfer_plan {
    std::uint64_t size = 0;   // of the stream in bytes
    std::uint64_t total = 0;  // of it, what the runs cover
    bool compressed = false;
    bool restore_index_blocks = false;
};

transfer_plan plan_transfer(const CNtfs& ntfs, const attr_item& item, bool raw) {
    transfer_plan plan;
    // Deliberate: clusters after the initialized size go out as they are on the disk, not as zeros, up to the
    // real size. The user can examine what lies there.
    plan.size = raw ? item.allocated : std::max(item.real, item.initialized);
    const auto cluster_size = static_cast<std::uint64_t>(std::max(ntfs.m_cluster_size, 0));
    plan.total = std::min(run_bytes(item.runs, cluster_size, false), plan.size);
    // Deliberate: only a stream with the flag "compressed" and no other is decompressed, not one that is
    // sparse or encrypted too. The user gets any other as it is stored.
    plan.compressed = item.flags == attr_flag_compressed && item.unit != 0 && !raw && item.compressed != 0;
    plan.restore_index_blocks = item.type == attr_index_allocation && !raw;
    return plan;
}

// Restores the fixups of the whole index blocks in a transfer.
void restore_index_blocks(std::span<std::uint8_t> transfer, std::uint32_t sector_size) {
    for (std::size_t at = 0; transfer.size() - at >= index_block_size; at += index_block_size) {
        restore_sector_ends(transfer.subspan(at, index_block_size), sector_size,
                            sector_end_limit(index_block_size, sector_size));
    }
}

// Bytes of a transfer. Index blocks are restored transfer by transfer, so there it is a unit of 16 clusters,
// also where that is longer than a buffer.
std::uint64_t transfer_length(const CNtfs& ntfs, const transfer_plan& plan) {
    if (plan.restore_index_blocks) {
        return transfer_unit(ntfs);
    }
    const std::uint64_t room = transfer_buffer_size(ntfs);
    return room == 0 ? 0 : std::max<std::uint64_t>(transfer_size / room, 1) * room;
}

// Bytes of the buffer for transfers of so many bytes: whole index blocks where it is shorter than a transfer.
std::uint64_t buffer_length(const CNtfs& ntfs, std::uint64_t transfer) {
    const std::uint64_t room = transfer_buffer_size(ntfs);
    return transfer <= std::max(room, transfer_size)
               ? transfer
               : std::min(transfer, (room + index_block_size - 1) / index_block_size * index_block_size);
}

// Moves one transfer. Returns how many bytes came, 0 where none did.
std::uint64_t move_transfer(CNtfs& ntfs, stream_reader& reader, const transfer_plan& plan,
                            std::uint64_t offset, std::uint64_t length, std::span<std::uint8_t> buffer,
                            stream_sink& sink) {
    const auto give = [&](std::span<std::uint8_t> bytes) {
        if (plan.restore_index_blocks) {
            restore_index_blocks(bytes, ntfs.get_bytes_per_sector());
        }
        sink.write(byte_view(bytes));
    };
    std::uint32_t flags = 0;
    if (length <= buffer.size()) {
        if (!reader.read(offset, buffer.data(), length, flags)) {
            return 0;
        }
        give(buffer.first(length));
        return length;
    }
    std::uint64_t moved = 0;
    // Each turn moves a buffer, or is the last.
    for (bool more = reader.begin(offset, length, flags); more && moved < length;) {
        const std::uint64_t wanted = std::min<std::uint64_t>(buffer.size(), length - moved);
        const std::uint64_t got = reader.read_part(moved, buffer.data(), wanted, flags);
        if (got != 0) {
            give(buffer.first(got));
        }
        moved += got;
        more = got == wanted && !sink.has_failed();
    }
    return moved;
}

void pump_clusters(CNtfs& ntfs, const cluster_run_list& runs, const transfer_plan& plan, std::uint64_t slack,
                   std::uint64_t transfer, std::span<std::uint8_t> buffer, stream_sink& sink,
                   pump_context& context) {
    stream_reader reader(ntfs, runs);
    std::uint64_t offset = 0;
    std::uint64_t left = plan.total;
    std::uint64_t length = std::min(transfer, left);
    // Each turn moves on in the stream; where the runs end, so does the loop.
    while (const std::uint64_t moved = move_transfer(ntfs, reader, plan, offset, length, buffer, sink)) {
        context.bytes_copied += moved;
        left -= moved;
        if (left == 0) {
            left = slack;
            slack = 0;
        }
        if (left == 0 || sink.has_failed()) {
            return;
        }
        offset += moved;
        length = std::min(transfer, left);
    }
}

// Deliberate: a cluster that cannot be read ends the copy and does not fail it. The user of a damaged disk
// gets a short file with what the disk gave up to there, and it counts as success.
bool pump_non_resident(CNtfs& ntfs, attr_item& item, const pump_rules& rules, stream_sink& sink,
                       pump_context& context) {
    const transfer_plan plan = plan_transfer(ntfs, item, rules.raw);
    context.log.log("info: data size 0x%llx", static_cast<unsigned long long>(plan.size));
    if (plan.compressed) {
        if (!pump_compressed(ntfs, item.runs, sink, 0, plan.total, item.allocated)) {
            return false;
        }
        // What the stream should have given, also where a hole or damage ended it earlier.
        context.bytes_copied += plan.total;
        return true;
    }
    // Deliberate: a copy without its holes does not end where the data ends. The total still counts the
    // holes, so the stored clusters end the copy, and the user gets the slack of the last one too.
    if (rules.skip_sparse) {
        drop_sparse_runs(item.runs);
    }
    const std::uint64_t transfer = transfer_length(ntfs, plan);
    if (std::min(transfer, plan.total) == 0) {
        return false;
    }
    const std::uint64_t slack = rules.include_slack ? item.allocated - plan.size : 0;
    std::vector<std::uint8_t> buffer(
        buffer_length(ntfs, slack != 0 ? transfer : std::min(transfer, plan.total)));
    pump_clusters(ntfs, item.runs, plan, slack, transfer, buffer, sink, context);
    return true;
}

// Deliberate: a stream of size 0, resident or in clusters, gives a failed copy, not an empty one. The user
// finds the size in the log.
bool pump_resident(const attr_item& item, stream_sink& sink, pump_context& context) {
    context.log.log("info: data size 0x%llx", static_cast<unsigned long long>(item.value_size));
    const byte_view value = byte_view(item.value).clipped(0, item.value_size);
    if (value.empty()) {
        return false;
    }
    sink.write(value);
    context.bytes_copied += value.size();
    return true;
}

// A value that was too long to be kept is no data; an empty one is data of size 0.
bool has_data(const attr_item& item) {
    return item.non_resident ? !item.runs.empty() : !item.value.empty() || item.value_size == 0;
}

}  // namespace

bool pump_stream(CNtfs* ntfs, attr_item& item, std::ostream& out, const pump_rules& rules,
                 std::string& md5_text, pump_context& context) {
    out.clear();
    context.bytes_copied = 0;
    md5_text.clear();
    if (!has_data(item)) {
        context.log.log("err: no data");
        return false;
    }
    if (ntfs == nullptr || !out.good()) {
        return false;
    }
    md5_ctx digest;
    md5_init(&digest);
    stream_sink sink(out, rules.want_md5 ? &digest : nullptr);
    bool ok = false;
    try {
        ok = item.non_resident ? pump_non_resident(*ntfs, item, rules, sink, context)
                               : pump_resident(item, sink, context);
    } catch (const std::bad_alloc&) {
        return false;
    }
    if (rules.want_md5) {
        md5_digest bytes{};
        md5_final(bytes, &digest);
        if (!ok) {
            bytes.fill(0);
        }
        hex_text(md5_text, bytes.data(), bytes.size(), false);
    }
    return ok;
}

bool copy_to_stream(CNtfs* ntfs, attr_item& item, std::ostream& out, bool raw, bool skip_sparse,
                    pump_context& context) {
    std::string no_text;
    return pump_stream(ntfs, item, out, {.raw = raw, .skip_sparse = skip_sparse}, no_text, context);
}

bool copy_hashed(CNtfs* ntfs, attr_item& item, std::ostream& out, bool raw, bool skip_sparse, bool want_md5,
                 std::string& md5_text, pump_context& context) {
    return pump_stream(ntfs, item, out, {.raw = raw, .skip_sparse = skip_sparse, .want_md5 = want_md5},
                       md5_text, context);
}

}  // namespace quarry
