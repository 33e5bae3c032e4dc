#include "frontend/exact/source_check.h"

#include "exact/exact_source.h"
#include "foundation/md5.h"
#include "foundation/sha1.h"
#include "frontend/exact/side_digests.h"

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

namespace quarry::exact {

namespace {

constexpr std::size_t piece_size = std::size_t{4} << 20;
// A form that keeps a chunk of one byte value as a word grows further than deflate does, which the size of
// the content goes by.
constexpr std::uint64_t growth_beyond_deflate = 64;

// The bytes of an EWF image as it holds them.
class bytes_as_stored final : public byte_source {
  public:
    explicit bytes_as_stored(ewf_source& image) : m_image(image) {}
    [[nodiscard]] read_outcome read(std::span<std::uint8_t> buffer, std::uint64_t offset) override {
        return m_image.read_as_stored(buffer, offset);
    }
    [[nodiscard]] std::uint64_t size() const override { return m_image.size(); }
    [[nodiscard]] std::uint64_t content_size() const override { return m_image.content_size(); }
    [[nodiscard]] std::uint32_t sector_size() const override { return m_image.sector_size(); }

  private:
    ewf_source& m_image;
};

struct digests {
    std::string md5;
    std::string sha1;
};

result<digests> digests_of(const exact_source& bytes, worker_pool& workers, progress& status_line) {
    md5_ctx md5;
    md5_init(&md5);
    sha1_ctx sha1;
    side_digests taking(workers.for_bytes(bytes.size()));
    taking.add([&md5](std::span<const std::uint8_t> part) { md5_update(&md5, part.data(), part.size()); });
    taking.add([&sha1](std::span<const std::uint8_t> part) { sha1.update(part.data(), part.size()); });
    std::vector<std::uint8_t> buffer(
        static_cast<std::size_t>(std::min<std::uint64_t>(piece_size, bytes.size())));
    status_line.begin_copy(bytes.size());
    for (std::uint64_t offset = 0; offset < bytes.size(); offset += buffer.size()) {
        const std::uint64_t rest = bytes.size() - offset;
        const std::span<std::uint8_t> piece(
            buffer.data(), static_cast<std::size_t>(std::min<std::uint64_t>(buffer.size(), rest)));
        if (auto read = bytes.read(piece, offset); !read) {
            return passed_on(read);
        }
        taking.take(piece);
        status_line.advance(piece.size());
    }
    taking.finish();
    digests found;
    md5_digest md5_bytes{};
    md5_final(md5_bytes, &md5);
    hex_text(found.md5, md5_bytes.data(), md5_bytes.size(), false);
    const sha1_digest sha1_bytes = sha1.final();
    hex_text(found.sha1, sha1_bytes.data(), sha1_bytes.size(), false);
    return found;
}

}  // namespace

bool has_stored_digest(const opened_source& source) {
    return source.ewf != nullptr && (!source.acquired_md5.empty() || !source.acquired_sha1.empty());
}

result<void> check_source(const opened_source& source, worker_pool& workers, exact_messages& messages) {
    if (source.ewf->size() / growth_beyond_deflate > source.ewf->content_size()) {
        return fail(failure_code::source_read, where::source(source.shown_path),
                    "says that it holds " + std::to_string(source.ewf->size()) +
                        " bytes, which its files have no room for");
    }
    if (const std::uint64_t missing = source.ewf->not_acquired(); missing != 0) {
        notices told;
        told.warn("unreadable", where::source(source.shown_path),
                  std::to_string(missing) + " bytes could not be read when it was acquired; what the image " +
                      "holds in their place is compared");
        messages.warn(told);
    }
    bytes_as_stored bytes(*source.ewf);
    auto found = digests_of(exact_source(bytes, source.shown_path), workers, messages.status_line());
    if (!found) {
        return passed_on(found);
    }
    const struct {
        const char* name;
        const std::string& acquired;
        const std::string& now;
    } rows[] = {{"md5", source.acquired_md5, found->md5}, {"sha1", source.acquired_sha1, found->sha1}};
    std::string fitting;
    for (const auto& row : rows) {
        if (row.acquired.empty()) {
            continue;
        }
        if (row.acquired != row.now) {
            return fail(
                failure_code::source_read, where::source(source.shown_path),
                std::string(row.name) + " is " + row.now + ", of what was acquired it was " + row.acquired);
        }
        fitting += std::string(", ") + row.name + " " + row.now;
    }
    messages.done("ok", "source " + source.shown_path + " is what was acquired (" +
                            std::to_string(source.bytes->size()) + " bytes" + fitting + ")");
    return {};
}

}  // namespace quarry::exact
