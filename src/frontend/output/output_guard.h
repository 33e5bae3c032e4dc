// What a run may write to.
//
// The source is evidence, and so are the copies and reports that the run has made already. The guard knows
// them: each file and device that is read as the source or was named as one, with everything that these are
// made of; the status log; the files that standard input, output and error lead to; and which file took a
// report and which a copy. No file can be opened for output without asking it.
#pragma once

#include "frontend/output/same_storage.h"

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

namespace quarry {

enum class output_kind {
    copy,
    report,
    log,   // the status log, also when it is opened again
    trial  // opened and removed again, to see whether it can be made
};

enum class output_verdict {
    free,
    source,  // to write there is to write to the source
    taken    // it holds something else that must stay
};

class output_guard {
  public:
    // Protects the files of descriptors 0, 1 and 2. Devices and pipes there lose nothing by a write.
    output_guard();

    // A file or device that is read, or may have been meant. One that does not exist is passed over.
    void add_source(const std::string& path);
    void add_sources(const std::vector<std::string>& paths);
    // The log is from here on no output but as itself.
    void protect_log(const std::string& path);
    // The file at a path takes from here on no output of any kind. Whoever has it open may write to it.
    void protect_file(const std::string& path);
    // From here on nothing that exists is replaced by a copy or a report.
    void keep_what_exists() { m_keeps_existing = true; }
    // From here on a path that took a report takes no copy, and the reverse. Both are remembered in some
    // bytes for each file.
    void tell_reports_from_copies() { m_tells_kinds = true; }

    // Whether a path may be opened for output, or a file be renamed to it. Nothing is opened or changed.
    [[nodiscard]] output_verdict look_at(const std::string& path, output_kind kind) const;
    // True if a file that is made in a directory would be written to the source, whatever it is called.
    [[nodiscard]] bool is_on_source(const std::string& directory) const;
    // An output of that kind was opened at, or renamed to, a path.
    void note(const std::string& path, output_kind kind);
    // The output at a path got another name.
    void forget(const std::string& path);

  private:
    using kinds = std::unordered_map<std::uint64_t, output_kind>;

    [[nodiscard]] bool lies_on_source(const file_system_id& file_system) const;
    [[nodiscard]] bool has_other_kind(const std::string& path, const found_file& found,
                                      output_kind kind) const;

    storage_set m_sources;
    std::set<file_likeness> m_source_likenesses;
    storage_set m_protected;
    std::optional<storage_id> m_log;
    bool m_keeps_existing = false;
    bool m_tells_kinds = false;
    kinds m_kind_of_path;
    kinds m_kind_of_file;
    mutable std::map<file_system_id, bool> m_known_file_systems;
};

}  // namespace quarry
