#include "frontend/exact/exact_list.h"

#include "exact/name_text.h"

#include <exception>
#include <utility>

namespace quarry::exact {

namespace {

constexpr std::size_t longest_shown = 80;

result<copy_object> object_of(const list_lines::line& line) {
    if (line.too_long) {
        return fail(failure_code::name, where_line(line.number),
                    "\"" + shown_typed(std::string_view(line.text).substr(0, longest_shown)) +
                        "...\" has more than " + std::to_string(longest_list_line) + " bytes");
    }
    auto object = parse_list_line(line.text);
    if (!object) {
        object.error().where.insert(0, where_line(line.number) + ": ");
    }
    return object;
}

copy_outcome carry_out(copy_session& session, list_lines::line line) {
    auto object = object_of(line);
    return object ? session.carry_out({std::move(*object), std::move(line.text), line.number})
                  : session.refuse(std::move(line.text), line.number, std::move(object.error()));
}

}  // namespace

void list_count::add(copy_end end) {
    ++asked;
    switch (end) {
        case copy_end::complete:
            ++complete;
            break;
        case copy_end::in_doubt:
            ++in_doubt;
            break;
        case copy_end::kept:
            ++kept;
            break;
        case copy_end::failed:
            ++failed;
            break;
    }
}

exit_status list_count::status() const {
    const bool any_stands = complete + in_doubt + kept > 0;
    if (failed > 0 || cut_off) {
        return any_stands ? exit_status::some_failed : exit_status::failed;
    }
    return in_doubt > 0 ? exit_status::in_doubt : exit_status::complete;
}

std::string list_count::text() const {
    return "list: " + std::to_string(asked) + " asked, " + std::to_string(complete) + " complete, " +
           std::to_string(in_doubt) + " in doubt, " + std::to_string(failed) + " failed, " +
           std::to_string(kept) + " kept";
}

namespace {

// The lines up to the last one, or to what ends the run.
void copy_lines(copy_session& session, list_lines& lines, list_scout& scout, exact_messages& messages,
                list_count& count) {
    while (true) {
        auto line = lines.next();
        if (!line) {
            messages.err(line.error().text());
            count.cut_off = true;
            return;
        }
        if (!*line) {
            return;
        }
        // What the volume itself needs is in memory after the first copy.
        if (count.asked > 0) {
            scout.look_ahead((*line)->number, lines);
        }
        count.add(carry_out(session, std::move(**line)).end());
        if (session.must_end()) {
            return;
        }
    }
}

}  // namespace

exit_status copy_list(copy_session& session, list_lines& lines, list_scout& scout, exact_messages& messages) {
    list_count count;
    try {
        copy_lines(session, lines, scout, messages, count);
    } catch (const std::exception&) {
        messages.tell(count.text());
        throw;
    }
    // In a pipeline the status of what was to make the list is lost.
    if (count.asked == 0 && !count.cut_off) {
        messages.tell("warning: list: has no line; did the command that makes it fail?");
    }
    messages.tell(count.text());
    return session.must_end().value_or(count.status());
}

}  // namespace quarry::exact
