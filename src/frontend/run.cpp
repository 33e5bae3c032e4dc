#include "frontend/run.h"

#include "frontend/arg_list.h"
#include "frontend/borrowed_rights.h"
#include "frontend/confinement.h"
#include "frontend/copy/copy.h"
#include "frontend/copy/copy_messages.h"
#include "frontend/copy/pipe_mode.h"
#include "frontend/exact/exact_options.h"
#include "frontend/exact/exact_run.h"
#include "frontend/options/cmdline_ctx.h"
#include "frontend/options/quarry_opts.h"
#include "frontend/output/console.h"
#include "frontend/run_header.h"
#include "frontend/standard_streams.h"
#include "frontend/usage.h"

#include <cstdio>

namespace quarry {

namespace {

constexpr int success_status = 0;
constexpr int failure_status = -1;

arg_list arguments_of(int argc, const char* const* argv) {
    arg_list args;
    for (int index = 0; index < argc; ++index) {
        args.emplace_back(argv[index] == nullptr ? "" : argv[index]);
    }
    return args;
}

bool asks_for_help(const arg_list& args) {
    for (const std::string_view option : {"-h", "-help", "/?", "--help"}) {
        if (peek_flag(option, args, 0)) {
            return true;
        }
    }
    return args.size() == 1;
}

int ignore_signal_text(const std::string&) {
    return 0;
}

bool copy_once(quarry_opts& opts) {
    std::unique_ptr<CNtfs> ntfs;
    const bool copied = copy(ntfs, opts, opts.m_src, true);
    ntfs.reset();
    if (copied) {
        print_outcome(opts.m_run, true, "copy successful");
    } else {
        opts.m_run.m_log.log("err: copy failed");
    }
    return copied;
}

// Everything between the header and the exit status. False if the run failed.
bool parse_and_copy(quarry_opts& opts, arg_list& args, const std::string& header, cmdline_ctx& run_ctx,
                    kernel_calls* kernel) {
    if (!opts.parse(args, version_text)) {
        opts.m_run.m_log.log("err: cmdline");
        return false;
    }
    run_ctx.configure(opts.m_run, ignore_signal_text);
    if (kernel != nullptr) {
        confine_files(files_needed_by(opts), *kernel);
    }
    opts.m_run.m_log.log_text(header);
    if (opts.m_run.m_pipe || opts.m_run.m_enum) {
        run_pipe(opts);
        return true;
    }
    return copy_once(opts);
}

}  // namespace

int run(int argc, const char* const* argv, kernel_calls* kernel) {
    const ql::time now;
    secure_standard_streams();
    if (has_borrowed_rights()) {
        print_error("quarry is installed setuid or setgid, which gives its rights away: refusing to run\n");
        return failure_status;
    }
    arg_list args = arguments_of(argc, argv);
    if (args.empty()) {
        return failure_status;
    }
    if (exact::asks_for_exact_mode(args)) {
        return static_cast<int>(exact::run_exact(args, now, kernel));
    }
    cmdline_ctx run_ctx;
    if (asks_for_help(args)) {
        print_usage();
        return success_status;
    }
    const std::string header = run_header(args, now);
    std::fputs((header + "\n").c_str(), stdout);
    flush_output();
    quarry_opts opts;
    opts.m_admin = is_administrator();
    const bool succeeded = parse_and_copy(opts, args, header, run_ctx, kernel);
    // Deliberate: a pipe run never fails, not even when its options could not be parsed. The user sees the
    // outcome of each path in its own line.
    const bool exits_well = succeeded || opts.m_run.m_pipe || opts.m_run.m_enum;
    opts.m_run.m_log.log(exits_well ? "exit: 0" : "exit: -1");
    return exits_well ? success_status : failure_status;
}

}  // namespace quarry
