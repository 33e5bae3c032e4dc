#include "frontend/exact/exact_copy.h"

#include "exact/name_text.h"
#include "exact/stream.h"
#include "foundation/md5.h"
#include "foundation/sha256.h"
#include "frontend/exact/copy_object.h"
#include "frontend/exact/destination_tree.h"
#include "frontend/exact/earlier_file.h"
#include "frontend/exact/sealed_file.h"
#include "frontend/exact/side_digests.h"

#include <algorithm>
#include <array>
#include <optional>
#include <stdexcept>
#include <sys/stat.h>

namespace quarry::exact {

namespace {

constexpr std::uint64_t filetime_ticks = 10000000;  // in a second
constexpr std::int64_t seconds_from_1601_to_1970 = 11644473600;
constexpr std::array<std::uint8_t, side_digests::block_bytes> zero_bytes{};

// Where the bytes of a stream go: to the file, and to the digests of the copy that are wanted.
class copy_sink final : public stream_sink {
  public:
    // `workers` may be null.
    copy_sink(sealed_file& file, const exact_options& options, progress& status_line, worker_pool* workers)
        : m_file(&file),
          m_status_line(&status_line),
          m_with_md5(options.md5),
          m_with_sha256(options.sha256),
          m_digests(workers) {
        if (m_with_md5) {
            md5_init(&m_md5);
            m_digests.add([this](std::span<const std::uint8_t> bytes) {
                md5_update(&m_md5, bytes.data(), bytes.size());
            });
        }
        if (m_with_sha256) {
            sha256_init(&m_sha256);
            m_digests.add([this](std::span<const std::uint8_t> bytes) {
                sha256_update(&m_sha256, bytes.data(), bytes.size());
            });
        }
    }

    [[nodiscard]] result<void> data(byte_view block) override {
        m_digests.take(block.span());
        auto appended = m_file->append(block.span());
        m_status_line->advance(block.size());
        return appended;
    }

    // In parts, so that the status line moves where zeros are written and digested. A hole of a sparse copy
    // takes no time, and may be longer than could be counted in parts.
    [[nodiscard]] result<void> zeros(std::uint64_t length) override {
        const bool digests = !m_digests.empty();
        const std::uint64_t most = digests || !m_file->is_sparse() ? zero_bytes.size() : length;
        while (length > 0) {
            const std::uint64_t count = std::min(length, most);
            if (digests) {
                m_digests.take_lasting(std::span(zero_bytes).first(static_cast<std::size_t>(count)));
            }
            if (auto appended = m_file->append_hole(count); !appended) {
                return appended;
            }
            m_status_line->advance(count);
            length -= count;
        }
        return {};
    }

    // Returns when the digests have all bytes.
    void finish() { m_digests.finish(); }

    // Hexadecimal digits; empty if the digest is not wanted. Each may be asked for once, after finish().
    [[nodiscard]] std::string md5_text() {
        md5_digest digest{};
        return m_with_md5 && md5_final(digest, &m_md5) ? text_of(digest) : std::string();
    }
    [[nodiscard]] std::string sha256_text() {
        sha256_digest digest{};
        return m_with_sha256 && sha256_final(digest, &m_sha256) ? text_of(digest) : std::string();
    }

  private:
    template <typename Digest>
    [[nodiscard]] static std::string text_of(const Digest& digest) {
        std::string text;
        hex_text(text, digest.data(), digest.size(), false);
        return text;
    }

    sealed_file* m_file;
    progress* m_status_line;
    bool m_with_md5;
    bool m_with_sha256;
    md5_ctx m_md5{};        // begun if it is wanted
    sha256_ctx m_sha256{};  // likewise
    side_digests m_digests;
};

// A time of 0 means nothing: the file keeps the one that it has.
std::timespec host_time(std::uint64_t filetime) {
    if (filetime == 0) {
        return {0, UTIME_OMIT};
    }
    return {static_cast<std::time_t>(filetime / filetime_ticks) - seconds_from_1601_to_1970,
            static_cast<long>(filetime % filetime_ticks) * 100};
}

// The host may refuse the times; the copy is whole all the same.
void set_times(sealed_file& file, const std::optional<stored_times>& times, notices& told) {
    if (times) {
        const auto set =
            file.set_times({.accessed = host_time(times->accessed), .modified = host_time(times->modified)});
        if (!set) {
            told.warn("times", set.error().where, "the times cannot be kept: " + set.error().why);
        }
    }
}

// Clusters have no name, and no times.
result<std::string> own_name(const found_object& object) {
    return name_on_host(object.file_name, object.content->name(), object.content->type());
}

result<std::optional<stored_times>> times_of_object(const found_object& object) {
    return object.set == nullptr ? result<std::optional<stored_times>>(std::nullopt) : times_of(*object.set);
}

// Refuses a name that must not be made or replaced.
result<void> check_target(const copy_means& means, const destination& target) {
    const auto existing = file_at(target.path());
    if (const auto line = existing ? means.made.line_of(*existing) : std::nullopt) {
        return fail(failure_code::exists, where::destination(shown_typed(target.path())),
                    "was made by line " + std::to_string(*line) + " of this list");
    }
    // What is there when a run goes on may be the copy itself.
    return check_destination(target, means.options.overwrite || means.options.resume, means.guard);
}

// The name that proves time and digest of the copy, in place of the one in `target`.
result<void> add_digest(const copy_means& means, destination& target,
                        const std::optional<stored_times>& times, const finished_copy& finished) {
    const std::uint64_t modified = times ? times->modified : 0;
    return name_with_digest(modified, target.name, finished.md5).and_then([&](std::string name) {
        target.name = std::move(name);
        return check_target(means, target);
    });
}

// True if a copy takes more than reading and writing.
bool has_work_for_others(const found_object& object, const exact_options& options) {
    const bool decodes = object.content->system_compressed() || object.content->stored().compressed();
    return options.md5 || options.sha256 || (decodes && !options.raw);
}

struct copy_place {
    destination target;
    open_directory directory;
    made_directories made;      // of the copy's path; gone again unless there is a copy
    bool kept = false;          // an earlier run has made the copy
    bool may_be_there = false;  // a file of that size has the name, and may be the copy
};

// The copy of an earlier run: the same bytes have the name already.
result<finished_copy> take_earlier_copy(copy_means& means, const destination& target, std::uint64_t line,
                                        finished_copy finished, notices& told) {
    finished.destination = target.path();
    return expect_same_bytes(finished.destination, finished.sha256).map([&] {
        told.warn("there-already", where::destination(shown_typed(finished.destination)),
                  "was there already, with the same bytes, and has its line now");
        if (const auto file = file_at(finished.destination)) {
            means.made.add(*file, line);
        }
        return std::move(finished);
    });
}

// The bytes, written to a temporary file and given the name of the target.
result<finished_copy> write_copy(copy_means& means, found_object& object, std::uint64_t line,
                                 copy_place place, notices& told, object_facts* known) {
    const exact_options& options = means.options;
    auto times = options.keep_times || options.md5 ? times_of_object(object) : std::nullopt;
    if (!times) {
        return passed_on(times);
    }
    destination& target = place.target;
    sealed_file file(std::move(place.directory), options.sparse);
    const std::uint64_t size = object.content->delivered_size(options.raw);
    if (auto created = file.create(size); !created) {
        return passed_on(created);
    }
    means.messages.status_line().begin_copy(size);
    worker_pool* const workers =
        has_work_for_others(object, options) ? means.workers.for_bytes(size) : nullptr;
    copy_sink sink(file, options, means.messages.status_line(), workers);
    auto delivered = object.content->deliver(sink, {options.raw, options.zero_unreadable, workers}, told);
    if (!delivered) {
        return passed_on(delivered);
    }
    sink.finish();
    if (known != nullptr) {
        known->unread = std::move(delivered->unread);
        known->reused_clusters = delivered->reused_clusters;
    }
    if (file.size() != delivered->bytes) {
        throw std::logic_error("a copy has another size than its stream");
    }
    finished_copy finished{object.shown, {}, file.size(), sink.md5_text(), sink.sha256_text()};
    if (options.md5) {
        if (auto named = add_digest(means, target, *times, finished); !named) {
            return passed_on(named);
        }
    }
    if (place.may_be_there) {
        return take_earlier_copy(means, target, line, std::move(finished), told);
    }
    if (options.keep_times) {
        set_times(file, *times, told);
    }
    if (!options.manifest_path.empty()) {
        finished.until_recorded = std::make_unique<signals_held_back>();
    }
    // Memory that runs out must not find a copy under its name that nothing knows.
    finished.destination = target.path();
    means.made.make_room(file.identity().device);
    if (auto on_disk = file.finish(); !on_disk) {
        return passed_on(on_disk);
    }
    if (means.before_name && known != nullptr) {
        means.before_name(finished, line, told, *known);
    }
    if (auto sealed = file.seal(target.name, options.overwrite); !sealed) {
        return passed_on(sealed);
    }
    place.made.keep();
    means.made.add(file.identity(), line);
    return finished;
}

// Whether the file at the target may be the copy of an earlier run: of one that was killed before it could
// write the line, of one that named the source by another path, or one in doubt. A file of another size is
// not.
result<bool> look_at_earlier_copy(const copy_means& means, const destination& target, std::uint64_t size) {
    const std::string path = target.path();
    if (!means.options.resume || means.options.overwrite || !file_at(path)) {
        return false;
    }
    return size_of_earlier_file(path).and_then([&](std::uint64_t found) -> result<bool> {
        if (found != size) {
            return fail(failure_code::exists, where::destination(shown_typed(path)),
                        "exists with " + std::to_string(found) + " bytes, the copy has " +
                            std::to_string(size) + "; say -overwrite");
        }
        return true;
    });
}

// The directory of the copy: that of the command line, or the object's own below it.
result<open_directory> directory_of(const copy_means& means, const found_object& object,
                                    const destination& target, notices& told) {
    // With -md5 the name gets longer.
    const std::size_t name_bytes = means.options.md5 ? longest_name : target.name.size();
    return means.options.tree ? open_tree(target.directory, directories_of(means.volume, object, told),
                                          means.guard, name_bytes)
                              : open_directory::at(target.directory);
}

// Where the copy goes: what the command line says, completed with the object's own name.
result<copy_place> place_of(const copy_means& means, const found_object& object, notices& told,
                            const object_facts* known) {
    destination target = split_destination(means.options.destination);
    const bool is_named = !target.name.empty();
    if (!is_named) {
        auto name = own_name(object);
        if (!name) {
            return passed_on(name);
        }
        target.name = std::move(*name);
    }
    auto directory = directory_of(means, object, target, told);
    if (!directory) {
        return passed_on(directory);
    }
    made_directories made(*directory);
    target.directory = directory->path();
    if (means.is_kept && known != nullptr && means.is_kept(*known, target.path())) {
        return copy_place{std::move(target), std::move(*directory), std::move(made), true};
    }
    // With -md5 this is not the whole name yet.
    if (!is_named && !means.options.md5) {
        if (auto checked = check_target(means, target); !checked) {
            return passed_on(checked);
        }
    }
    auto may_be_there =
        look_at_earlier_copy(means, target, object.content->delivered_size(means.options.raw));
    if (!may_be_there) {
        return passed_on(may_be_there);
    }
    return copy_place{std::move(target), std::move(*directory), std::move(made), false, *may_be_there};
}

}  // namespace

result<finished_copy> copy_to_destination(copy_means& means, const copy_order& order, notices& told,
                                          object_facts* known) {
    auto object = find_object(means.volume, means.directories, means.options, order.object, means.messages,
                              told, known);
    if (!object) {
        return passed_on(object);
    }
    auto place = place_of(means, *object, told, known);
    if (!place) {
        return passed_on(place);
    }
    if (place->kept) {
        finished_copy kept;
        kept.source = object->shown;
        kept.destination = place->target.path();
        kept.kept = true;
        // Another line of this run must not replace it.
        if (const auto file = file_at(kept.destination)) {
            means.made.add(*file, order.line);
        }
        return kept;
    }
    return write_copy(means, *object, order.line, std::move(*place), told, known);
}

}  // namespace quarry::exact
