#include "frontend/exact/exact_listing.h"

#include "exact/name_text.h"
#include "exact/path_walk.h"
#include "exact/volume_path.h"
#include "frontend/exact/line_writer.h"
#include "frontend/exact/listing_table.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

namespace quarry::exact {

namespace {

result<void> list(exact_volume& volume, const exact_options& options, const listing_outputs& outputs,
                  exact_messages& messages, notices& told) {
    if (options.deleted) {
        return options.listing->kind->of_deleted(volume, outputs, told);
    }
    auto path = parse_volume_path(without_last_separator(options.listing->path));
    if (!path) {
        return passed_on(path);
    }
    messages.info("path " + shown_path(*path) +
                  (path->prefix.empty() ? "" : ", " + path->prefix + " is passed over"));
    walk_options walking;
    walking.follow_last = false;
    walking.tell = [&messages](const std::string& line) { messages.info(line); };
    for (const std::string& letter : options.letters) {
        walking.volume_names.push_back(units_of_utf8(letter).value_or(std::u16string()));
    }
    return walk_path(volume, path->names, walking, told).and_then([&](walked_path start) {
        return options.listing->kind->of_path(volume, std::move(start), options.recurse, outputs, told);
    });
}

}  // namespace

result<void> check_listing(const exact_options& options) {
    return parse_volume_path(without_last_separator(options.listing->path))
        .and_then([&](const volume_path& path) -> result<void> {
            if (path.stream != stream_name{}) {
                return fail(failure_code::name, where::path(shown_path(path)),
                            "is a stream; a listing is of a directory or a file");
            }
            if (options.deleted && !path.names.empty()) {
                return fail(failure_code::name, where::path(shown_path(path)),
                            "-deleted lists the whole volume; say -list /");
            }
            return {};
        });
}

exit_status print_listing(exact_volume& volume, const exact_options& options, exact_messages& messages) {
    line_writer lines;
    std::uint64_t damages = 0;
    // Lines that a file or a pipe does not take any more are found out about by the next write.
    const listing_outputs outputs{[&](std::string_view line) { return lines.write(line); },
                                  [&](const failure& each) {
                                      ++damages;
                                      messages.err(each.text());
                                  }};
    notices told;
    auto listed =
        line_writer::begin().and_then([&] { return list(volume, options, outputs, messages, told); });
    if (auto flushed = lines.flush(); listed && !flushed) {
        listed = std::move(flushed);
    }
    messages.warn(told);
    messages.info("listed " + std::to_string(lines.lines()) + " lines, " + std::to_string(damages) +
                  " damaged places");
    if (!listed) {
        messages.err(listed.error().text());
        return exit_status::failed;
    }
    return damages == 0 ? exit_status::complete : exit_status::some_failed;
}

}  // namespace quarry::exact
