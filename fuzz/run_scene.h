// Whole runs of the program inside of this process, in a directory of their own that is emptied for each run.
//
// The directory holds the image, a symbolic and a hard link to it, a drive's device that leads to it, and an
// empty directory. Whatever the arguments are, a run must exit with 0 or -1, close what it opened and leave
// no temporary file; memory is limited (see memory_limit.h). No argument may lead out of the directory: see
// argument_script.h.
#pragma once

#include "fuzz/sparse_input.h"
#include "support/memory_file.h"
#include "support/temp_dir.h"

#include <string>
#include <vector>

namespace quarry::fuzz {

class run_scene {
  public:
    run_scene();
    run_scene(const run_scene&) = delete;
    run_scene& operator=(const run_scene&) = delete;

    // Goes into the directory and fills it. `lines` are what standard input gives.
    void enter(const sparse_input& image, const std::string& lines) const;
    // Runs the program, whose name is the first of the words, and ends this process if the run broke a rule.
    void run(const std::vector<std::string>& words) const;
    // Ends this process if the image is not as `enter` left it: same file, same length, not written.
    void expect_image_unchanged() const;
    void leave() const;

  private:
    test::temp_dir m_directory;
    test::memory_file m_lines{"lines"};
    int m_outside;
};

}  // namespace quarry::fuzz
