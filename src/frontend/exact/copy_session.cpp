#include "frontend/exact/copy_session.h"

#include "exact/name_text.h"

#include <utility>

namespace quarry::exact {

namespace {

std::string text_of(const finished_copy& copy) {
    return shown_typed(copy.source) + " -> " + shown_typed(copy.destination) + " (" +
           std::to_string(copy.bytes) + (copy.bytes == 1 ? " byte" : " bytes") +
           (copy.md5.empty() ? "" : ", md5 " + copy.md5) + ")";
}

}  // namespace

std::string_view copy_end_text(copy_end end) {
    switch (end) {
        case copy_end::complete:
            return "complete";
        case copy_end::in_doubt:
            return "in doubt";
        case copy_end::failed:
            break;
    }
    return "failed";
}

copy_end copy_outcome::end() const {
    if (!copied) {
        return copy_end::failed;
    }
    return told.in_doubt() ? copy_end::in_doubt : copy_end::complete;
}

copy_outcome copy_session::carry_out(const copy_order& order) {
    notices told;
    auto copied = copy_to_destination(m_means, order, told);
    if (m_source.has_changed()) {
        told.doubt("source-changed", where::source(m_source.shown_path), "changed while it was read");
    }
    copy_outcome outcome{order.asked, order.line, std::move(copied), std::move(told)};
    say(outcome);
    return outcome;
}

copy_outcome copy_session::refuse(std::string asked, std::uint64_t line, failure why) {
    copy_outcome outcome{std::move(asked), line, tl::make_unexpected(std::move(why)), {}};
    say(outcome);
    return outcome;
}

void copy_session::say(const copy_outcome& outcome) {
    m_means.messages.warn(outcome.told);
    if (outcome.copied) {
        m_means.messages.done(outcome.end() == copy_end::complete ? "ok" : "doubt", text_of(*outcome.copied));
    } else {
        m_means.messages.err(outcome.copied.error().text());
    }
    m_means.messages.info("result " + std::string(copy_end_text(outcome.end())));
}

}  // namespace quarry::exact
