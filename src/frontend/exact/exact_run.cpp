#include "frontend/exact/exact_run.h"

#include "exact/exact_volume.h"
#include "exact/name_text.h"
#include "exact/volume_table.h"
#include "frontend/exact/broken_run.h"
#include "frontend/exact/copy_object.h"
#include "frontend/exact/copy_session.h"
#include "frontend/exact/destination_path.h"
#include "frontend/exact/exact_confinement.h"
#include "frontend/exact/exact_help.h"
#include "frontend/exact/exact_list.h"
#include "frontend/exact/exact_listing.h"
#include "frontend/exact/exact_messages.h"
#include "frontend/exact/exact_options.h"
#include "frontend/exact/line_writer.h"
#include "frontend/exact/log_path.h"
#include "frontend/exact/manifest.h"
#include "frontend/exact/source_check.h"
#include "frontend/exact/source_opening.h"
#include "frontend/output/console.h"
#include "frontend/output/output_guard.h"
#include "frontend/run_header.h"
#include "frontend/standard_streams.h"

#include <array>
#include <cstdio>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <unistd.h>
#include <utility>
#include <vector>

namespace quarry::exact {

namespace {

// A failure and the status that the run ends with for it.
struct ended {
    exit_status status;
    failure why;
};

tl::unexpected<ended> end_with(exit_status status, failure why) {
    return tl::make_unexpected(ended{status, std::move(why)});
}

// What was asked for and cannot be is the command line's fault, wherever it was found out.
exit_status status_of(failure_code code, exit_status otherwise) {
    switch (code) {
        case failure_code::no_such_volume:
        case failure_code::several_volumes:
            return exit_status::refused;
        default:
            return otherwise;
    }
}

// ---- outputs

// The log may replace an earlier one and nothing else.
tl::expected<void, ended> open_log(const exact_options& options, const arg_list& arguments,
                                   const std::string& header, output_guard& guard, exact_messages& messages) {
    if (options.log_path.empty()) {
        return {};
    }
    if (auto checked = check_log(options.log_path, guard, options.destination); !checked) {
        return end_with(exit_status::refused, std::move(checked.error()));
    }
    if (auto opened = messages.open_log(options.log_path, joined_arguments(arguments, '"'), header);
        !opened) {
        return end_with(exit_status::refused, std::move(opened.error()));
    }
    guard.protect_log(options.log_path);
    return {};
}

// Opened before the destination is looked at, so that no copy takes its name.
tl::expected<std::unique_ptr<manifest>, ended> open_manifest(const exact_options& options,
                                                             const arg_list& arguments, output_guard& guard) {
    if (options.manifest_path.empty()) {
        return nullptr;
    }
    auto opened = manifest::open(options, arguments, guard);
    if (!opened) {
        return end_with(exit_status::refused, std::move(opened.error()));
    }
    return std::move(*opened);
}

tl::expected<void, ended> refuse_outputs(const exact_options& options, const output_guard& guard) {
    if (options.volumes || options.verify_source) {
        return {};
    }
    if (options.listing) {
        const auto checked = check_listing(options);
        return checked ? tl::expected<void, ended>() : end_with(exit_status::refused, checked.error());
    }
    // A copy of an earlier run may be kept.
    const bool may_exist = options.overwrite || options.resume;
    const destination target = split_destination(options.destination);
    if (options.pipe) {
        auto checked = check_destination(target, may_exist, guard);
        return checked ? tl::expected<void, ended>() : end_with(exit_status::refused, checked.error());
    }
    const bool is_cluster = std::holds_alternative<object_by_clusters>(*options.object);
    if (is_cluster && target.name.empty()) {
        return end_with(exit_status::refused,
                        {failure_code::create, where::destination(shown_typed(target.directory)),
                         "clusters have no name; name the file", std::nullopt});
    }
    // With -md5 the name is not known yet, and with -tree not the directory. In a directory the volume may
    // spell the name in another way; that is looked at again when it has said so.
    const destination known = options.md5 ? destination{target.directory, {}} : target;
    auto checked = check_destination(known, may_exist, guard)
                       .and_then([&] { return check_object(*options.object); })
                       .and_then([&]() -> result<void> {
                           const auto name = name_as_asked(*options.object);
                           return known.name.empty() && !options.md5 && !options.tree && name
                                      ? check_destination({target.directory, *name}, may_exist, guard)
                                      : result<void>();
                       });
    return checked ? tl::expected<void, ended>() : end_with(exit_status::refused, checked.error());
}

// ---- the volume

std::string volume_line(const exact_volume& volume) {
    const geometry& shape = volume.shape();
    std::array<char, 17> serial{};
    std::snprintf(serial.data(), serial.size(), "%016llX", static_cast<unsigned long long>(shape.serial));
    return "volume at " + hex(shape.volume_offset) + ": serial " + serial.data() + ", version " +
           volume.state().version_text() + ", clusters of " + std::to_string(shape.cluster_size) +
           ", records of " + std::to_string(shape.record_size);
}

void log_volume(const exact_volume& volume, exact_messages& messages) {
    const volume_state& state = volume.state();
    messages.info(volume_line(volume));
    messages.info("journal " + std::string(journal_text(state.journal)) + ", dirty " +
                  (state.dirty ? (*state.dirty ? "1" : "0") : "unknown"));
    messages.info("$MFT " + std::to_string(volume.table().table().size()) + " bytes in " +
                  std::to_string(volume.table().table().runs().runs().size()) + " runs" +
                  (volume.table().from_mirror() ? " (mirror)" : ""));
}

// Where the volume lies: where the user says, or where the table has the one that is meant. Several volumes
// are shown.
result<partition> find_volume(const exact_source& source, const exact_options& options,
                              exact_messages& messages, notices& told) {
    if (options.offset || options.source.kind == source_kind::partition) {
        const std::uint64_t offset = options.offset.value_or(0);
        const partition rest = {offset, offset < source.size() ? source.size() - offset : 0};
        if (look_at_volume(source, rest).kind == volume_kind::bitlocker) {
            return fail(failure_code::enciphered, where::source(source.path()), "is enciphered (BitLocker)");
        }
        return rest;
    }
    auto table = volume_table::read(source, options.sector_size, told);
    if (!table) {
        return passed_on(table);
    }
    auto chosen = table->choose(options.ntfsvol);
    if (!chosen && chosen.error().code == failure_code::several_volumes) {
        messages.show(table->listing());
    }
    return chosen.map([](const listed_volume& volume) { return volume.place; });
}

tl::expected<exit_status, ended> print_volumes(const exact_source& source, const exact_options& options,
                                               exact_messages& messages) {
    notices told;
    auto table = volume_table::read(source, options.sector_size, told);
    messages.warn(told);
    if (!table) {
        return end_with(exit_status::not_opened, std::move(table.error()));
    }
    line_writer lines;
    auto printed =
        line_writer::begin().and_then([&] { return lines.write_lines(table->listing()); }).and_then([&] {
            return lines.flush();
        });
    return printed ? tl::expected<exit_status, ended>(exit_status::complete)
                   : end_with(exit_status::failed, std::move(printed.error()));
}

tl::expected<exit_status, ended> verify_source(const opened_source& source, const exact_options& options,
                                               exact_messages& messages) {
    if (!has_stored_digest(source)) {
        return end_with(exit_status::refused,
                        {failure_code::source_open, where::source(source.shown_path),
                         "holds no digest of what was acquired; sha256sum computes one", std::nullopt});
    }
    worker_pool workers(options.threads);
    auto checked = check_source(source, workers, messages);
    return checked ? tl::expected<exit_status, ended>(exit_status::complete)
                   : end_with(exit_status::failed, std::move(checked.error()));
}

// What to do where no volume is at the place that the command line names.
std::string hint_for_place(const failure& why, const exact_options& options, const exact_source& source) {
    const bool is_no_volume = why.code == failure_code::boot;
    if (!options.offset) {
        return is_no_volume && options.source.kind == source_kind::partition
                   ? "; a disk with a partition table is named with -image"
                   : "";
    }
    const bool ends_before = why.code == failure_code::source_end && *options.offset >= source.size();
    if (!is_no_volume && !ends_before) {
        return "";
    }
    constexpr std::uint64_t sector_bytes = 512;
    if (*options.offset < source.size() / sector_bytes) {
        const std::uint64_t from_sectors = *options.offset * sector_bytes;
        const partition rest = {from_sectors, source.size() - from_sectors};
        if (look_at_volume(source, rest).kind == volume_kind::ntfs) {
            return "; -offset counts bytes, sector " + std::to_string(*options.offset) + " is -offset " +
                   std::to_string(from_sectors);
        }
    }
    return "; -volumes lists the offsets of the volumes";
}

tl::expected<std::unique_ptr<exact_volume>, ended> open_volume(opened_source& source,
                                                               const exact_options& options,
                                                               exact_messages& messages, manifest* evidence) {
    notices told;
    const exact_source bytes(*source.bytes, source.shown_path);
    auto opened = find_volume(bytes, options, messages, told).and_then([&](const partition& place) {
        return exact_volume::open(*source.bytes, source.shown_path, place.offset, place.length, told);
    });
    if (opened && (!options.log_path.empty() || evidence != nullptr)) {
        (*opened)->check_empty_journal(told);
    }
    messages.warn(told);
    if (evidence != nullptr) {
        evidence->add_warnings(told);
    }
    if (!opened) {
        opened.error().why += hint_for_place(opened.error(), options, bytes);
        const exit_status status = status_of(opened.error().code, exit_status::not_opened);
        return end_with(status, std::move(opened.error()));
    }
    if (evidence != nullptr) {
        evidence->set_volume(**opened);
    }
    log_volume(**opened, messages);
    return std::move(*opened);
}

// ---- the copies

// The words of the command line that name the object.
std::string text_of(const copy_object& object) {
    if (const auto* const path = std::get_if<object_by_path>(&object)) {
        return path->text;
    }
    if (const auto* const entry = std::get_if<object_by_entry>(&object)) {
        return std::to_string(entry->entry) +
               (entry->sequence ? "-" + std::to_string(*entry->sequence) : std::string()) + entry->stream;
    }
    const auto& clusters = std::get<object_by_clusters>(object);
    return std::to_string(clusters.lcn) + " " + std::to_string(clusters.count);
}

exit_status status_of(const copy_outcome& outcome, const copy_object& object) {
    switch (outcome.end()) {
        case copy_end::complete:
        case copy_end::kept:
            return exit_status::complete;
        case copy_end::in_doubt:
            return exit_status::in_doubt;
        case copy_end::failed:
            break;
    }
    const bool outside_of_volume = outcome.copied.error().code == failure_code::outside &&
                                   std::holds_alternative<object_by_clusters>(object);
    return outside_of_volume ? exit_status::refused
                             : status_of(outcome.copied.error().code, exit_status::failed);
}

exit_status copy_one(copy_session& session, const copy_object& object) {
    const exit_status status = status_of(session.carry_out({object, text_of(object)}), object);
    return session.must_end().value_or(status);
}

// A listing of a source that changed meanwhile may be of neither state.
exit_status list_volume(const opened_source& source, exact_volume& volume, const exact_options& options,
                        exact_messages& messages) {
    const exit_status status = print_listing(volume, options, messages);
    if (!source.has_changed()) {
        return status;
    }
    notices told;
    told.doubt("source-changed", where::source(source.shown_path), "changed while it was read");
    messages.warn(told);
    return status == exit_status::complete ? exit_status::in_doubt : status;
}

// What is no list must be found out before the source is opened.
tl::expected<void, ended> begin_list(const exact_options& options, list_lines& lines) {
    if (!options.pipe) {
        return {};
    }
    // A list that was forgotten must not look like one without a line.
    if (standard_input_was_closed()) {
        return end_with(exit_status::refused,
                        {failure_code::name, "list", "standard input is closed", std::nullopt});
    }
    auto begun = lines.begin();
    return begun ? tl::expected<void, ended>() : end_with(exit_status::refused, std::move(begun.error()));
}

std::string where_of_source(const exact_options& options) {
    return where::source(options.source.paths.empty() ? "" : shown_typed(options.source.paths.front()));
}

tl::expected<exit_status, ended> read_and_copy(const exact_options& options,
                                               const std::vector<std::string>& source_files,
                                               list_lines& lines, const output_guard& guard,
                                               exact_messages& messages, manifest* evidence) {
    notices told;
    auto source = open_source(options.source, source_files, told);
    if (!source) {
        const exit_status status = status_of(source.error().code, exit_status::not_opened);
        return end_with(status, std::move(source.error()));
    }
    messages.info("exact source " + source->shown_path + ", " + std::to_string(source->bytes->size()) +
                  " bytes");
    messages.warn(told);
    if (evidence != nullptr) {
        evidence->set_source(*source, source_files);
        evidence->add_warnings(told);
    }
    if (options.verify_source) {
        return verify_source(*source, options, messages);
    }
    if (options.volumes) {
        return print_volumes(exact_source(*source->bytes, source->shown_path), options, messages);
    }
    return open_volume(*source, options, messages, evidence)
        .and_then([&](std::unique_ptr<exact_volume> volume) {
            if (options.listing) {
                return tl::expected<exit_status, ended>(list_volume(*source, *volume, options, messages));
            }
            copy_session session(*source, *volume, options, guard, messages, evidence);
            list_scout scout(*source->bytes, *volume, options);
            return tl::expected<exit_status, ended>(options.pipe ? copy_list(session, lines, scout, messages)
                                                                 : copy_one(session, *options.object));
        });
}

// The same where memory ran out, or the program has a fault, between copies.
tl::expected<exit_status, ended> read_and_copy_unless_broken_off(const exact_options& options,
                                                                 const std::vector<std::string>& source_files,
                                                                 list_lines& lines, const output_guard& guard,
                                                                 exact_messages& messages,
                                                                 manifest* evidence) {
    try {
        return read_and_copy(options, source_files, lines, guard, messages, evidence);
    } catch (const std::exception&) {
        return end_with(exit_status::broken_off, failure_in_flight(where_of_source(options)));
    }
}

// A run that ended before its first copy has its line in the manifest as a copy has. Gives the failure of
// that line in place of `why` if it cannot be written.
ended recorded(ended why, const exact_options& options, manifest* evidence, exact_messages& messages) {
    if (evidence != nullptr) {
        const auto asked = options.object ? std::optional(text_of(*options.object)) : std::nullopt;
        if (auto added = evidence->add_ended_run(why.why, asked); !added) {
            messages.err(why.why.text());
            return {exit_status::failed, std::move(added.error())};
        }
    }
    return why;
}

void give_up_rights(const exact_options& options, const std::vector<std::string>& source_files,
                    kernel_calls* kernel) {
    if (kernel != nullptr) {
        confine_files(files_needed_by(options, source_files), *kernel);
    }
}

tl::expected<void, ended> look_at_source_files(const result<std::vector<std::string>>& source_files) {
    return source_files ? tl::expected<void, ended>()
                        : end_with(exit_status::not_opened, source_files.error());
}

// With no more rights than it takes. A run that ended before its first copy is in the manifest.
tl::expected<exit_status, ended> read_and_copy_confined(const exact_options& options,
                                                        const result<std::vector<std::string>>& source_files,
                                                        list_lines& lines, const output_guard& guard,
                                                        exact_messages& messages, manifest* evidence,
                                                        kernel_calls* kernel) {
    return look_at_source_files(source_files)
        .map([&] { give_up_rights(options, *source_files, kernel); })
        .and_then([&] {
            return read_and_copy_unless_broken_off(options, *source_files, lines, guard, messages, evidence);
        })
        .map_error([&](ended why) { return recorded(std::move(why), options, evidence, messages); });
}

// The descriptor of standard output or standard error that leads into one of the files, standard error first.
std::optional<int> stream_into(const std::vector<std::string>& files) {
    output_guard guard;
    guard.add_sources(files);
    for (const int stream : {STDERR_FILENO, STDOUT_FILENO}) {
        const std::string path = "/proc/self/fd/" + std::to_string(stream);
        if (guard.look_at(path, output_kind::report) == output_verdict::source) {
            return stream;
        }
    }
    return std::nullopt;
}

// Everything after the command line was understood.
exit_status carry_out(const exact_options& options, const result<std::vector<std::string>>& source_files,
                      const arg_list& arguments, const std::string& header, exact_messages& messages,
                      kernel_calls* kernel) {
    messages.set_quiet(options.quiet);
    output_guard guard;
    guard.add_sources(options.source.paths);
    guard.add_sources(source_files.value_or(options.source.paths));
    list_lines lines(read_standard_input);
    std::unique_ptr<manifest> evidence;
    const auto status = open_log(options, arguments, header, guard, messages)
                            .and_then([&] { return open_manifest(options, arguments, guard); })
                            .map([&](std::unique_ptr<manifest> opened) { evidence = std::move(opened); })
                            .and_then([&] { return refuse_outputs(options, guard); })
                            .and_then([&] { return begin_list(options, lines); })
                            .and_then([&] {
                                return read_and_copy_confined(options, source_files, lines, guard, messages,
                                                              evidence.get(), kernel);
                            });
    if (!status) {
        messages.err(status.error().why.text());
    }
    return status ? *status : status.error().status;
}

}  // namespace

exit_status run_exact(const arg_list& arguments, const ql::time& started, kernel_calls* kernel) {
    const auto options = parse_exact_options(arguments);
    if (options && options->help) {
        print_exact_help();
        return exit_status::complete;
    }
    // A command line that was not understood may name its source in any word.
    const auto source_files = options ? files_of_source(options->source) : arguments;
    const std::vector<std::string>& named = options ? options->source.paths : arguments;
    if (const auto written = stream_into(source_files.value_or(named))) {
        // Where the words would go into the source there are none.
        if (*written != STDERR_FILENO) {
            const std::string why = options ? "standard output is the source" : options.error().text;
            std::fputs(("err: " + why + "\n").c_str(), stderr);
        }
        return exit_status::refused;
    }
    const std::string header = run_header(arguments, started);
    // The lines of a listing have standard output for themselves; the log has the header.
    if (!asks_for_listing(arguments)) {
        std::fputs((header + "\n").c_str(), stdout);
    }
    flush_output();
    exact_messages messages;
    if (!options) {
        messages.err(options.error().text);
        return exit_status::refused;
    }
    if (!options->quiet) {
        messages.status_line().start(terminal_of_messages(), options->pipe);
    }
    exit_status status = exit_status::broken_off;
    try {
        status = carry_out(*options, source_files, arguments, header, messages, kernel);
    } catch (const std::exception&) {
        messages.err(failure_in_flight(where_of_source(*options)).text());
    }
    messages.log("exit: " + std::to_string(static_cast<int>(status)));
    const bool all_is_well = status == exit_status::complete || status == exit_status::in_doubt;
    return all_is_well && messages.log_is_cut_off() ? exit_status::failed : status;
}

}  // namespace quarry::exact
