#include "frontend/exact/copy_session.h"

#include "exact/name_text.h"
#include "frontend/exact/list_lines.h"

#include <utility>

namespace quarry::exact {

namespace {

std::string text_of(const finished_copy& copy) {
    return shown_typed(copy.source) + " -> " + shown_typed(copy.destination) + " (" +
           std::to_string(copy.bytes) + (copy.bytes == 1 ? " byte" : " bytes") +
           (copy.md5.empty() ? "" : ", md5 " + copy.md5) +
           (copy.sha256.empty() ? "" : ", sha256 " + copy.sha256) + ")";
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
    notices told;
    object_facts known;
    known.asked = order.asked;
    known.raw = m_means.options.raw;
    auto copied = copy_to_destination(m_means, order, told, m_evidence == nullptr ? nullptr : &known);
    // The record or the directory that a failure names may belong to any of the lines.
    if (!copied && m_means.options.pipe) {
        copied.error().where.insert(0, where_line(order.line) + ": ");
    }
    if (m_source.has_changed()) {
        told.doubt("source-changed", where::source(m_source.shown_path), "changed while it was read");
    }
    copy_outcome outcome{order.asked, order.line, std::move(copied), std::move(told)};
    end_with(outcome, std::move(known));
    return outcome;
}

copy_outcome copy_session::refuse(std::string asked, std::uint64_t line, failure why) {
    copy_outcome outcome{std::move(asked), line, tl::make_unexpected(std::move(why)), {}};
    object_facts known;
    known.asked = outcome.asked;
    known.raw = m_means.options.raw;
    end_with(outcome, std::move(known));
    return outcome;
}

void copy_session::end_with(copy_outcome& outcome, object_facts known) {
    const auto recorded = record(outcome, std::move(known));
    if (outcome.copied) {
        outcome.copied->until_recorded.reset();
    }
    outcome.is_recorded = recorded.has_value();
    m_must_end = m_must_end || !recorded;
    // What is missing of a copy is said before the copy is; of a failure the failure comes first.
    if (!recorded && outcome.copied) {
        m_means.messages.err(recorded.error().text());
    }
    say(outcome);
    if (!recorded && !outcome.copied) {
        m_means.messages.err(recorded.error().text());
    }
}

result<void> copy_session::record(const copy_outcome& outcome, object_facts known) {
    if (m_evidence == nullptr || outcome.end() == copy_end::kept) {
        return {};
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

void copy_session::say(const copy_outcome& outcome) {
    m_means.messages.warn(outcome.told);
    if (outcome.end() == copy_end::kept) {
        m_means.messages.done("kept", shown_typed(outcome.copied->source));
    } else if (outcome.copied) {
        m_means.messages.done(outcome.end() == copy_end::complete ? "ok" : "doubt", text_of(*outcome.copied));
    } else {
        m_means.messages.err(outcome.copied.error().text());
    }
    m_means.messages.info("result " + std::string(copy_end_text(outcome.end())));
}

}  // namespace quarry::exact
