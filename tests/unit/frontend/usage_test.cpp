#include "frontend/usage.h"

#include <gtest/gtest.h>

namespace quarry {
namespace {

TEST(usage, the_banner_is_the_name_and_the_version) {
    EXPECT_EQ(banner(), "quarry ver: 1.14");
}

TEST(usage, the_help_text_goes_to_standard_error_byte_for_byte) {
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    print_usage();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "-----------------------------------------------------------------------------\n"
              "\n"
              "quarry ver: 1.14\n"
              "\n"
              "Usage:\n"
              "\n"
              " a. copying by filename\n"
              "  quarry <src> <dst>\n"
              "  quarry -image <dd img> -offset <vol> -src <src> -dst <file>\n"
              "\n"
              " b. copying by MFT number\n"
              "  quarry -image <dd img> -offset <vol> -mft <#> -dst <file>\n"
              "\n"
              " c. copying by logical cluster number (LCN)\n"
              "  quarry -image <img> -offset <vol> -cluster <startLCN> <#LCNs> -dst <file>\n"
              "\n"
              " d. copying from a monolithic VMWare virtual NTFS drive\n"
              "  quarry -vmdk \"<file1> | <file2> | ... \" -src <file> -dst <file>\n"
              "\n"
              " miscellaneous options\n"
              "   -src <filename>              = explicitly define source file\n"
              "   -dst <filename>              = explicitly define destination file\n"
              "   -raw                         = output raw clusters including slack space\n"
              "   -md5                         = prepends mod time to filename w/ md5 hash\n"
              "   -first_ntfsvol               = use the offset to the first NTFS volume\n"
              "   -skip_sparse_clusters        = don't include sparse clusters in the output\n"
              "   -meta                        = extract metadata to separate file [.meta.txt]\n"
              "   -pipe                        = use STDIN for path/filename input\n"
              "   -filter <*partial*|*.ext>    = filters stdin data from -pipe option\n"
              "\n");
}

}  // namespace
}  // namespace quarry
