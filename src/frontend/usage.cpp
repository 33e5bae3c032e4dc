#include "frontend/usage.h"

#include "frontend/output/console.h"

namespace quarry {

namespace {

constexpr std::string_view rule =
    "-----------------------------------------------------------------------------\n\n";

constexpr std::string_view usage_body =
    R"(Usage:

 a. copying by filename
  quarry <src> <dst>
  quarry -image <dd img> -offset <vol> -src <src> -dst <file>

 b. copying by MFT number
  quarry -image <dd img> -offset <vol> -mft <#> -dst <file>

 c. copying by logical cluster number (LCN)
  quarry -image <img> -offset <vol> -cluster <startLCN> <#LCNs> -dst <file>

 d. copying from a monolithic VMWare virtual NTFS drive
  quarry -vmdk "<file1> | <file2> | ... " -src <file> -dst <file>

 miscellaneous options
   -src <filename>              = explicitly define source file
   -dst <filename>              = explicitly define destination file
   -raw                         = output raw clusters including slack space
   -md5                         = prepends mod time to filename w/ md5 hash
   -first_ntfsvol               = use the offset to the first NTFS volume
   -skip_sparse_clusters        = don't include sparse clusters in the output
   -meta                        = extract metadata to separate file [.meta.txt]
   -pipe                        = use STDIN for path/filename input
   -filter <*partial*|*.ext>    = filters stdin data from -pipe option

)";

}  // namespace

std::string banner() {
    return "quarry " + std::string(version_text);
}

void print_usage() {
    std::string text(rule);
    text += banner() + "\n\n";
    text += usage_body;
    print_error(text);
}

}  // namespace quarry
