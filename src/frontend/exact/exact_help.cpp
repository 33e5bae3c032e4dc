#include "frontend/exact/exact_help.h"

#include "frontend/exact/listing_table.h"
#include "frontend/options/source_table.h"
#include "frontend/output/console.h"
#include "frontend/usage.h"

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>

namespace quarry::exact {

namespace {

constexpr std::string_view help_to_sources =
    R"(The exact mode: the whole stream, byte for byte, or a failure that says where.

 quarry -exact -image <file> -src <path> -dst <file>
 quarry -exact -image <file> -mft <entry> -dst <directory>/
 quarry -exact -image <file> -pipe -dst <directory>/ < list
 quarry -exact -image <file> -volumes
 quarry -exact -image <file> -list / -recurse

 source, one of
)";

constexpr std::string_view help_from_sources =
    R"( volume
   -offset <bytes>              = where it begins; no partition table is asked
   -ntfsvol <n>                 = the nth NTFS volume; -first_ntfsvol: the first
   -volumes                     = print the volumes; no copy
   -verify_source               = compare an EWF image with its digests; no copy
   -sector_size <bytes>         = of the partition table: 512, 1024, 2048, 4096
 object, one of
   -src <path>[:<stream>]       = "/dir/file", or with \ in place of each /
   -mft <n>[-<sequence>]        = an entry; -src :<stream> for a stream of it
   -cluster <lcn> [<count>]     = clusters of the volume
   -pipe                        = one object a line of standard input: a path,
                                  an entry[:<stream>], or a line of a listing
   -letter <C|Volume{GUID}>     = links to this name lead to this volume
 listing, in place of a copy
)";

constexpr std::string_view help_from_listings =
    R"(   -recurse                     = and what its directories hold
   -deleted                     = the deleted files of the volume, with -list /
 destination
   -dst <file>, -dst <dir>/     = never an earlier file, unless with -overwrite
   -tree                        = below it, the directories of the path too
   -overwrite                   = replace a regular file
   -sparse                      = leave holes where there are only zeros
   -keep_times                  = keep the times of the file
   -md5                         = name the copy by modification time and MD5
   -sha256                      = print the SHA-256 of the copy
 evidence
   -manifest <file>             = a line of JSON for each copy, with SHA-256
   -resume                      = keep the complete copies that the manifest has
   -source_sha256 <digest>      = of the source, as you know it, for -manifest
 reading
   -raw                         = allocated clusters as stored, slack included
   -zero_unreadable             = zeros for what cannot be read; in doubt then
   -threads <n>                 = workers for digests and decoding, 1 to 64;
                                  the cores at hand, at most 4
 messages
   -diags <file>                = log
   -quiet                       = errors only

 exit status: 0 complete, 1 failed, 2 refused, 3 some lines of a list failed, or
              a part of a listing, 4 in doubt, 5 no source or volume

)";

// A line of the help: an option with its value, and what it is.
std::string line_of(std::string_view word, std::string_view value, std::string_view help) {
    constexpr std::size_t column = 32;  // of the "="
    std::string line = "   " + std::string(word) + " " + std::string(value);
    line.resize(column, ' ');
    return line + "= " + std::string(help) + "\n";
}

}  // namespace

void print_exact_help() {
    std::string text = banner() + "\n\n" + std::string(help_to_sources);
    // The usual one is the last in the table.
    std::for_each(source_options.rbegin(), source_options.rend(), [&text](const source_option& option) {
        if (option.exact_hint.empty()) {
            text += line_of(option.word, option.exact_value, option.exact_help);
        }
    });
    text += help_from_sources;
    for (const listing_option& option : listing_options) {
        text += line_of(option.word, "<path>", option.help);
    }
    print_error(text + std::string(help_from_listings));
}

}  // namespace quarry::exact
