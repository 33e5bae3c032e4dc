#include "exact/container.h"

#include "support/byte_writer.h"
#include "support/memory_source.h"

#include <string>

#include <gtest/gtest.h>

namespace quarry::test {

namespace {

using namespace exact;

std::string answer(const bytes& content) {
    memory_source source(content);
    const auto refused = refuse_container(exact_source(source, "disk"));
    return refused ? "taken" : std::string(code_text(refused.error().code)) + ": " + refused.error().text();
}

bytes beginning_with(std::string_view text) {
    return byte_writer(2048).text(0, text).take();
}

}  // namespace

TEST(container, is_refused_by_its_name_with_what_to_do) {
    const std::string head = "source-open: source disk: is ";
    const std::string raw =
        "; give a raw view of it, as share/doc/quarry/docs/limits.md shows under \"Other containers\"";
    EXPECT_EQ(answer(beginning_with(std::string_view("EVF\x09\x0d\x0a\xff\0", 8))),
              head + "an EWF image; say -image");
    EXPECT_EQ(answer(beginning_with("EVF2")), head + "an EWF image; say -image");
    EXPECT_EQ(answer(beginning_with("QFI\xfb")), head + "a QCOW image" + raw);
    EXPECT_EQ(answer(beginning_with("vhdxfile")), head + "a VHDX image" + raw);
    EXPECT_EQ(answer(beginning_with("KDMV")), head + "a VMDK; say -vmdk");
    EXPECT_EQ(answer(beginning_with("# Disk DescriptorFile")), head + "the description of a VMDK; say -vmdk");
}

TEST(container, of_the_zip_kind_is_known_by_its_first_file) {
    const bytes aff4 = byte_writer(2048).text(0, "PK\x03\x04").u16(26, 11).text(30, "version.txt").take();
    EXPECT_EQ(answer(aff4),
              "source-open: source disk: is an AFF4 image; give a raw view of it, as "
              "share/doc/quarry/docs/limits.md shows under \"Other containers\"");
    EXPECT_EQ(answer(byte_writer(aff4).u16(26, 10).take()), "taken");
    EXPECT_EQ(answer(byte_writer(aff4).text(30, "Version.txt").take()), "taken");
}

TEST(container, may_be_known_by_its_last_sector) {
    EXPECT_EQ(answer(byte_writer(2048).text(2048 - 512, "conectix").take()),
              "source-open: source disk: is a VHD image; give a raw view of it, as "
              "share/doc/quarry/docs/limits.md shows under \"Other containers\"");
    EXPECT_EQ(answer(byte_writer(2048).text(2048 - 513, "conectix").take()), "taken");
    EXPECT_EQ(answer(byte_writer(2048).text(2048 - 510, "conectix").take()), "taken");
    EXPECT_EQ(answer(byte_writer(512).text(0, "conectix").take()),
              "source-open: source disk: is a VHD image; give a raw view of it, as "
              "share/doc/quarry/docs/limits.md shows under \"Other containers\"");
}

TEST(container, may_have_a_footer_of_511_bytes) {
    const std::string vhd =
        "source-open: source disk: is a VHD image; give a raw view of it, as share/doc/quarry/docs/limits.md "
        "shows under \"Other containers\"";
    EXPECT_EQ(answer(byte_writer(2048).text(2048 - 511, "conectix").take()), vhd);
    EXPECT_EQ(answer(byte_writer(511).text(0, "conectix").take()), vhd);
    EXPECT_EQ(answer(byte_writer(510).text(0, "conectix").take()), "taken");
}

TEST(container, is_nothing_that_begins_a_little_otherwise) {
    for (const std::string_view text : {"", "EVF", "QFI", "vhdxfil", "KDM", "# Disk Desc", "kdmv"}) {
        EXPECT_EQ(answer(beginning_with(text)), "taken") << text;
    }
    EXPECT_EQ(answer({}), "taken");
    EXPECT_EQ(answer({'K', 'D', 'M'}), "taken");
}

}  // namespace quarry::test
