#include "frontend/exact/exact_help.h"

#include "frontend/exact/listing_table.h"
#include "frontend/output/console.h"
#include "frontend/usage.h"

#include <cstddef>
#include <string>
#include <string_view>

namespace quarry::exact {

namespace {

constexpr std::string_view help_to_listings =
    R"(The exact mode: the whole stream, byte for byte, or a failure that says where.

 quarry -exact -image <file> -src <path> -dst <file>
 quarry -exact -image <file> -mft <entry> -dst <directory>/
 quarry -exact -image <file> -pipe -dst <directory>/ < list
 quarry -exact -image <file> -volumes
 quarry -exact -image <file> -list / -recurse

 source, one of
   -image <file|device>         = a disk or a bare volume, raw or EWF (E01)
   -partition <device>          = a bare volume
   -vmdk "<file> | <file> ..."  = a chain of sparse VMDK files
 volume
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

}  // namespace

void print_exact_help() {
    constexpr std::size_t column = 32;  // of the "="
    std::string text = banner() + "\n\n" + std::string(help_to_listings);
    for (const listing_option& option : listing_options) {
        std::string line = "   " + std::string(option.word) + " <path>";
        line.resize(column, ' ');
        text += line + "= " + std::string(option.help) + "\n";
    }
    print_error(text + std::string(help_from_listings));
}

}  // namespace quarry::exact
