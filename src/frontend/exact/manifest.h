// The manifest of a run: a line for each copy, and for each that failed.
//
// It is opened before the source is, so that no copy is made that cannot be recorded. What all copies share,
// the run, the source and the volume, is noted once; then each copy is recorded when it has its name. A run
// that ends before its first copy, because the source or the volume cannot be opened, is recorded too.
#pragma once

#include "exact/exact_volume.h"
#include "exact/failure.h"
#include "frontend/arg_list.h"
#include "frontend/exact/exact_options.h"
#include "frontend/exact/manifest_file.h"
#include "frontend/exact/manifest_line.h"
#include "frontend/exact/manifest_reader.h"
#include "frontend/exact/source_opening.h"
#include "frontend/output/output_guard.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quarry::exact {

class manifest {
  public:
    // Opens the manifest of the options. Fails as manifest_file::open does, with -resume
    // also as complete_copies::read does.
    [[nodiscard]] static result<std::unique_ptr<manifest>> open(const exact_options& options,
                                                                const arg_list& arguments,
                                                                output_guard& guard);

    // What was opened for all copies, and what was said of it. `files` are the paths of the source's files.
    // `volume` must outlive the lines.
    void set_source(const opened_source& source, const std::vector<std::string>& files);
    void set_volume(const exact_volume& volume) { m_volume = &volume; }
    void add_warnings(const notices& told);

    // With -resume: true if the manifest has a complete line for this object of this source, copied to
    // `path`, and a regular file of that size is there.
    [[nodiscard]] bool is_kept(const object_facts& object, const std::string& path) const;

    // A copy, or what became known of one that failed. `outcome` is "complete", "in doubt" or "failed".
    struct record {
        std::uint64_t line = 1;  // of the list
        std::string_view outcome = {};
        const failure* error = nullptr;
        const notices* told = nullptr;
        object_facts object = {};
        std::optional<copy_facts> copy = std::nullopt;
    };
    // Fails with manifest; the reason says whether there is a copy whose line is missing.
    [[nodiscard]] result<void> add(record added);
    // The same in two steps, so that the second one takes no memory: the line, and the line of a copy
    // appended.
    [[nodiscard]] std::string line_of(record added) const;
    [[nodiscard]] result<void> add_line_of_copy(std::string_view line);
    // The same for a run that ends before its first copy. `asked` is the object of the command line; nothing
    // for a list.
    [[nodiscard]] result<void> add_ended_run(const failure& why, std::optional<std::string> asked);

  private:
    struct only_by_open {};

  public:
    manifest(const exact_options& options, const arg_list& arguments, std::unique_ptr<manifest_file> file,
             only_by_open);

  private:
    [[nodiscard]] result<void> append(std::string_view line, bool has_copy);

    std::unique_ptr<manifest_file> m_file;
    const exact_options& m_options;
    run_facts m_run;
    source_facts m_source;
    const exact_volume* m_volume = nullptr;
    std::vector<notice> m_warnings;
    complete_copies m_earlier;  // empty without -resume
};

}  // namespace quarry::exact
