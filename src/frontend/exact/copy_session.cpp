#include "frontend/exact/copy_session.h"

#include "exact/name_text.h"
#include "frontend/exact/broken_run.h"
#include "frontend/exact/list_lines.h"

#include <exception>
#include <utility>
#include <variant>

namespace quarry::exact {

namespace {

std::string text_of(const finished_copy& copy) {
    return shown_typed(copy.source) + " -> " + shown_typed(copy.destination) + " (" +
           std::to_string(copy.bytes) + (copy.bytes == 1 ? " byte" : " bytes") +
           (copy.md5.empty() ? "" : ", md5 " + copy.md5) +
           (copy.sha256.empty() ? "" : ", sha256 " + copy.sha256) + ")";
}

std::string where_of(const copy_order& order) {
    if (const auto* const entry = std::get_if<object_by_entry>(&order.object)) {
        return where::record(entry->entry);
    }
    return std::holds_alternative<object_by_path>(order.object) ? where::path(shown_typed(order.asked))
                                                                : std::string(where::volume);
}

}  // namespace

std::string_view copy_end_text(copy_end end) {
    switch (end) {
        case copy_end::complete:
            return "complete";
        case copy_end::in_doubt:
            return "in doubt";
        case copy_end::kept:
            return "kept";
        case copy_end::failed:
            break;
    }
    return "failed";
}

copy_end copy_outcome::end() const {
    if (!copied) {
        return copy_end::failed;
    }
    if (copied->kept) {
        return copy_end::kept;
    }
    return told.in_doubt() || !is_recorded ? copy_end::in_doubt : copy_end::complete;
}

copy_outcome copy_session::carry_out(const copy_order& order) {
    m_prepared.reset();
    copy_outcome outcome{order.asked, order.line, {}, {}};
    object_facts known;
    known.asked = order.asked;
    known.raw = m_means.options.raw;
    outcome.copied = copy(order, outcome.told, known);
    // The record or the directory that a failure names may belong to any of the lines.
    if (!outcome.copied && m_means.options.pipe) {
        outcome.copied.error().where.insert(0, where_line(order.line) + ": ");
    }
    outcome.source_has_changed = m_source.has_changed();
    end_with(outcome, std::move(known));
    return outcome;
}

result<finished_copy> copy_session::copy(const copy_order& order, notices& told, object_facts& known) {
    try {
        return copy_to_destination(m_means, order, told, m_evidence == nullptr ? nullptr : &known);
    } catch (const std::exception&) {
        m_must_end = exit_status::broken_off;
        return tl::make_unexpected(failure_in_flight(where_of(order)));
    }
}

copy_outcome copy_session::refuse(std::string asked, std::uint64_t line, failure why) {
    copy_outcome outcome{std::move(asked), line, tl::make_unexpected(std::move(why)), {}};
    object_facts known;
    known.asked = outcome.asked;
    known.raw = m_means.options.raw;
    end_with(outcome, std::move(known));
    return outcome;
}

// What is said comes after the line of the manifest, and may want memory that there is not.
void copy_session::end_with(copy_outcome& outcome, object_facts known) {
    const auto recorded = record_unless_broken_off(outcome, std::move(known));
    if (outcome.copied) {
        outcome.copied->until_recorded.reset();
    }
    outcome.is_recorded = recorded.has_value();
    if (!recorded) {
        m_must_end = m_must_end.value_or(exit_status::failed);
    }
    try {
        say(outcome, recorded);
    } catch (const std::exception&) {
        m_must_end = exit_status::broken_off;
        failure why = failure_in_flight(where::path(shown_typed(outcome.asked)));
        why.why += outcome.copied ? "; the copy stands" : "";
        m_means.messages.err(why.text());
    }
}

result<void> copy_session::record_unless_broken_off(copy_outcome& outcome, object_facts known) {
    try {
        if (outcome.source_has_changed) {
            outcome.told.doubt("source-changed", where::source(m_source.shown_path),
                               "changed while it was read");
        }
        return record(outcome, std::move(known));
    } catch (const std::exception&) {
        m_must_end = exit_status::broken_off;
        failure why = failure_in_flight("manifest " + shown_typed(m_means.options.manifest_path));
        why.why.insert(0,
                       outcome.copied ? "the copy stands, its line is missing: " : "its line is missing: ");
        return tl::make_unexpected(std::move(why));
    }
}

void copy_session::prepare(const finished_copy& copy, std::uint64_t line, const notices& told,
                           const object_facts& known) {
    manifest::record added;
    added.line = line;
    added.outcome = copy_end_text(told.in_doubt() ? copy_end::in_doubt : copy_end::complete);
    added.told = &told;
    added.object = known;
    added.copy = {copy.destination, copy.bytes, copy.md5, copy.sha256, m_means.options.sparse};
    m_prepared = {m_evidence->line_of(std::move(added)), told.all().size()};
}

result<void> copy_session::record(const copy_outcome& outcome, object_facts known) {
    if (m_evidence == nullptr || outcome.end() == copy_end::kept) {
        return {};
    }
    if (m_prepared && outcome.copied && m_prepared->notices == outcome.told.all().size()) {
        return m_evidence->add_line_of_copy(m_prepared->text);
    }
    manifest::record added;
    added.line = outcome.line;
    added.outcome = copy_end_text(outcome.end());
    added.told = &outcome.told;
    added.object = std::move(known);
    if (outcome.copied) {
        const finished_copy& copy = *outcome.copied;
        added.copy = {copy.destination, copy.bytes, copy.md5, copy.sha256, m_means.options.sparse};
    } else {
        added.error = &outcome.copied.error();
    }
    return m_evidence->add(std::move(added));
}

void copy_session::say(const copy_outcome& outcome, const result<void>& recorded) {
    const bool is_kept = outcome.end() == copy_end::kept;
    if (outcome.copied && !is_kept) {
        const finished_copy& copy = *outcome.copied;
        m_means.messages.info("copied " + std::to_string(copy.bytes) +
                              (copy.bytes == 1 ? " byte to " : " bytes to ") + shown_typed(copy.destination));
    }
    // What is missing of a copy is said before the copy is; of a failure the failure comes first.
    if (!recorded && outcome.copied) {
        m_means.messages.err(recorded.error().text());
    }
    m_means.messages.warn(outcome.told);
    if (is_kept) {
        m_means.messages.done("kept", shown_typed(outcome.copied->source));
    } else if (outcome.copied) {
        m_means.messages.done(outcome.end() == copy_end::complete ? "ok" : "doubt", text_of(*outcome.copied));
    } else {
        m_means.messages.err(outcome.copied.error().text());
    }
    m_means.messages.info("result " + std::string(copy_end_text(outcome.end())));
    if (!recorded && !outcome.copied) {
        m_means.messages.err(recorded.error().text());
    }
}

}  // namespace quarry::exact
