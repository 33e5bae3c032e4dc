// One copy after another from one open volume.
//
// A run has one order if the command line names the object, otherwise one for each line of a list. All of
// them share the source, the volume with its tables and the log, which are opened once. Each order takes the
// same few steps, and its outcome is printed before the next one begins:
//
//     order --> find the stream --> write the copy --> warnings, then ok, doubt or err --> "info: result ..."
//
// The outcome holds whatever was found out, even if the copy failed. The line of the manifest is written
// after the copy has its final name and before the result is printed. It is put together before the copy has
// the name, so that memory that runs out leaves no copy without a line.
#pragma once

#include "exact/exact_volume.h"
#include "exact/failure.h"
#include "foundation/worker_pool.h"
#include "frontend/exact/exact_copy.h"
#include "frontend/exact/exact_messages.h"
#include "frontend/exact/exact_options.h"
#include "frontend/exact/exact_status.h"
#include "frontend/exact/manifest.h"
#include "frontend/exact/source_opening.h"
#include "frontend/output/output_guard.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace quarry::exact {

enum class copy_end : std::uint8_t { complete, in_doubt, failed, kept };

// "complete", "in doubt", "failed" or "kept".
[[nodiscard]] std::string_view copy_end_text(copy_end end);

// What became of an order.
struct copy_outcome {
    std::string asked;
    std::uint64_t line = 1;
    result<finished_copy> copied;
    notices told;  // warnings and doubts
    // False if its line of the manifest could not be written: a copy that is not on record is in doubt.
    bool is_recorded = true;
    bool source_has_changed = false;  // since it was opened; a doubt

    [[nodiscard]] copy_end end() const;
};

class copy_session {
  public:
    // All must outlive the session. Without a manifest `evidence` is null.
    copy_session(const opened_source& source, exact_volume& volume, const exact_options& options,
                 const output_guard& guard, exact_messages& messages, manifest* evidence = nullptr)
        : m_source(source), m_evidence(evidence), m_workers(options.threads), m_means{volume,   options,
                                                                                      guard,    messages,
                                                                                      m_made,   m_directories,
                                                                                      m_workers} {
        if (evidence != nullptr && options.resume) {
            m_means.is_kept = [evidence](const object_facts& object, const std::string& path) {
                return evidence->is_kept(object, path);
            };
        }
        if (evidence != nullptr) {
            m_means.before_name = [this](const finished_copy& copy, std::uint64_t line, const notices& told,
                                         const object_facts& known) { prepare(copy, line, told, known); };
        }
    }
    copy_session(const copy_session&) = delete;
    copy_session& operator=(const copy_session&) = delete;

    // Copies one object and says what became of it. Fails, in the outcome, as copy_to_destination does, and
    // with memory or fault where that is broken off.
    [[nodiscard]] copy_outcome carry_out(const copy_order& order);
    // The same for what is no order: it has failed with `why` already.
    [[nodiscard]] copy_outcome refuse(std::string asked, std::uint64_t line, failure why);

    // What the run must end with, once nothing more may be copied: failed after a line of the manifest that
    // could not be written, broken_off after a copy that was.
    [[nodiscard]] std::optional<exit_status> must_end() const { return m_must_end; }

  private:
    [[nodiscard]] result<finished_copy> copy(const copy_order& order, notices& told, object_facts& known);
    void prepare(const finished_copy& copy, std::uint64_t line, const notices& told,
                 const object_facts& known);
    void end_with(copy_outcome& outcome, object_facts known);
    [[nodiscard]] result<void> record_unless_broken_off(copy_outcome& outcome, object_facts known);
    [[nodiscard]] result<void> record(const copy_outcome& outcome, object_facts known);
    // Every outcome, whether complete or failed, passes here. `recorded` is what became of its line.
    void say(const copy_outcome& outcome, const result<void>& recorded);

    // The line of a copy, if it is complete or in doubt with just so many notices.
    struct prepared_line {
        std::string text;
        std::size_t notices = 0;
    };

    const opened_source& m_source;
    manifest* m_evidence;
    std::optional<exit_status> m_must_end;
    std::optional<prepared_line> m_prepared;  // of the present order
    made_copies m_made;
    warm_directories m_directories;
    worker_pool m_workers;
    copy_means m_means;
};

}  // namespace quarry::exact
