// Damages a small volume that has something of everything, on an MBR disk, on a GPT disk and in a virtual
// disk, with clusters and sectors that no power of two divides, and in files that seem a tebibyte long, in
// some hundred thousand ways, and runs everything that a run can do on each. A case may take two seconds of
// the processor and 256 MiB.
//
// Usage: damage_campaign CASES [PART PARTS]
// The cases are spread over all kinds of damage; with PART and PARTS, this process takes its share of them.
#include "damage/damaged_source.h"
#include "disk/partition_reader.h"
#include "disk/volume_detection.h"
#include "report/security_cache.h"
#include "support/expect.h"
#include "support/memory_peak/memory_peak.h"
#include "support/rich_volume.h"
#include "support/volume_flow.h"
#include "volume/ntfs_open.h"

#include <array>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <iostream>
#include <memory>
#include <sstream>
#include <string>
#include <unistd.h>
#include <vector>

// Read by AddressSanitizer where it is in the program: a finding aborts, so that the case is known; little
// memory is kept back, for speed.
extern "C" const char* __asan_default_options() {
    return "abort_on_error=1:quarantine_size_mb=16:malloc_context_size=0";
}

namespace quarry::test {
namespace {

constexpr double longest_case = 2;  // seconds of the processor: a busy machine is no finding
constexpr std::size_t most_memory = std::size_t{256} << 20;
// A case that does not end at all is ended.
constexpr unsigned hang_seconds = 60;

std::array<char, 256> current_case{};

extern "C" void tell_case(int signal) {
    static_cast<void>(!::write(STDERR_FILENO, "in the case: ", 13));
    static_cast<void>(!::write(STDERR_FILENO, current_case.data(), std::strlen(current_case.data())));
    static_cast<void>(!::write(STDERR_FILENO, "\n", 1));
    std::signal(signal, SIG_DFL);
    ::raise(signal);
}

double processor_seconds() {
    struct ::timespec now {};
    expect(::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now) == 0);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

// Looks for volumes as a run does, and opens what it finds; the place where the volume was goes last.
bool run_flows(const damaged_source& source) {
    std::ostringstream words;
    std::uint64_t offset = 0;
    bool found = false;
    std::unique_ptr<CNtfs> ntfs;
    if (source.kind() == source_kind::virtual_disk) {
        static_cast<void>(locate_in_vmdk(words, {source.path()}, offset, found, false));
        if (!open_by_vmdk({source.path()}, static_cast<std::int64_t>(offset), ntfs, false,
                          load_security_cache)) {
            return false;
        }
    } else {
        static_cast<void>(locate_in_image(words, source.path(), offset, found, false));
        std::vector<std::uint64_t> offsets;
        static_cast<void>(ntfs_offsets_in_image(source.path(), offsets));
        if (source.kind() == source_kind::bare_volume) {
            offset = 0;
        } else {
            offset = offsets.empty() ? 64 * 512 : offsets.front();
        }
        if (!open_by_image(source.path(), offset, ntfs, false, load_security_cache)) {
            return false;
        }
    }
    look_at_volume(*ntfs);
    return true;
}

struct tally {
    std::uint64_t cases = 0;
    std::uint64_t opened = 0;
    double slowest = 0;  // seconds
    std::size_t largest = 0;
    std::uint64_t failed = 0;
};

void run_case(damaged_source& source, std::uint64_t number, tally& sum) {
    const std::string text = source.describe(number);
    std::snprintf(current_case.data(), current_case.size(), "%s", text.c_str());
    source.damage(number);
    ::alarm(hang_seconds);
    start_memory_peak();
    const double begin = processor_seconds();
    sum.opened += run_flows(source) ? 1 : 0;
    const double took = processor_seconds() - begin;
    ::alarm(0);
    ++sum.cases;
    sum.slowest = std::max(sum.slowest, took);
    sum.largest = std::max(sum.largest, memory_peak());
    if (took > longest_case || memory_peak() > most_memory) {
        ++sum.failed;
        std::cerr << text << ": " << took << " s, " << memory_peak() << " bytes\n";
    }
}

// Each source has the same share of the cases; of its listed cases as many as there is room for beside as
// many of random bits, evenly spread.
void run_source(damaged_source& source, std::uint64_t cases, std::uint64_t part, std::uint64_t parts,
                tally& sum) {
    const std::uint64_t listed = std::min(source.listed_cases(), cases / 2);
    for (std::uint64_t i = part; i < cases; i += parts) {
        run_case(source, i < listed ? i * source.listed_cases() / listed : source.listed_cases() + i, sum);
    }
}

struct planned_source {
    source_shape source;
    geometry volume;
};

std::vector<planned_source> planned_sources() {
    constexpr std::uint64_t tebibyte = std::uint64_t{1} << 40;
    const auto clusters_of = [](std::uint32_t sectors, std::uint32_t sector_size = 512) {
        return geometry{.bytes_per_sector = sector_size,
                        .sectors_per_cluster = sectors,
                        .mft_entries = 56,
                        .stride = sector_size};
    };
    std::vector<planned_source> plan = {
        {{"MBR disk", source_kind::mbr_disk}, clusters_of(1)},
        {{"GPT disk", source_kind::gpt_disk}, clusters_of(1)},
        {{"virtual disk", source_kind::virtual_disk}, clusters_of(1)},
        {{"clusters of 3 sectors", source_kind::bare_volume}, clusters_of(3)},
        {{"clusters of 5 sectors", source_kind::bare_volume}, clusters_of(5)},
        {{"clusters of 7 sectors", source_kind::bare_volume}, clusters_of(7)},
        {{"sectors of 3000 bytes", source_kind::bare_volume}, clusters_of(1, 3000)},
        {{"sparse disk", source_kind::mbr_disk, tebibyte}, clusters_of(1)},
        {{"sparse virtual disk", source_kind::virtual_disk, tebibyte}, clusters_of(1)},
    };
    return plan;
}

int campaign(std::uint64_t cases, std::uint64_t part, std::uint64_t parts) {
    for (const int signal : {SIGABRT, SIGALRM, SIGSEGV}) {
        std::signal(signal, tell_case);
    }
    const std::vector<planned_source> plan = planned_sources();
    tally sum;
    for (const planned_source& planned : plan) {
        damaged_source source(planned.source, rich_volume(planned.volume, 10, true));
        // The campaign is worth something only if the volume opens while it is whole.
        expect(run_flows(source));
        run_source(source, cases / plan.size(), part, parts, sum);
    }
    std::cout << sum.cases << " cases, " << sum.opened << " volumes opened, slowest "
              << std::lround(sum.slowest * 1000) << " ms, largest " << sum.largest / 1024 << " KiB, "
              << sum.failed << " beyond the limits\n";
    return sum.cases == 0 || sum.failed != 0 ? 1 : 0;
}

}  // namespace
}  // namespace quarry::test

int main(int argc, char** argv) {
    if (argc != 2 && argc != 4) {
        std::cerr << "usage: damage_campaign CASES [PART PARTS]\n";
        return 2;
    }
    try {
        const std::uint64_t part = argc == 4 ? std::stoull(argv[2]) : 0;
        const std::uint64_t parts = argc == 4 ? std::stoull(argv[3]) : 1;
        return quarry::test::campaign(std::stoull(argv[1]), part, parts);
    } catch (const std::exception& problem) {
        std::cerr << problem.what() << '\n';
        return 1;
    }
}
