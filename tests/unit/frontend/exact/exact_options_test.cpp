#include "frontend/exact/exact_options.h"

#include "frontend/exact/option_table.h"

#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace quarry::test {

namespace {

using namespace exact;
using words = std::vector<std::string>;

// The words of a line with blanks between them, the program's name first.
words split_line(const std::string& line) {
    words list = {"quarry"};
    std::istringstream stream(line);
    for (std::string word; stream >> word;) {
        list.push_back(word);
    }
    return list;
}

exact_options options_of(const words& list) {
    const auto options = parse_exact_options(list);
    EXPECT_TRUE(options) << (options ? "" : options.error().text);
    return options.value_or(exact_options{});
}

exact_options options_of(const std::string& line) {
    return options_of(split_line(line));
}

std::string refusal_of(const words& list) {
    const auto options = parse_exact_options(list);
    return options ? "taken" : options.error().text;
}

std::string refusal_of(const std::string& line) {
    return refusal_of(split_line(line));
}

const std::string whole = "-exact -image d -src /a -dst b ";

}  // namespace

TEST(exact_options, one_word_in_any_letter_case_asks_for_the_mode) {
    EXPECT_TRUE(asks_for_exact_mode(split_line("-exact")));
    EXPECT_TRUE(asks_for_exact_mode(split_line("-image d -EXACT")));
    EXPECT_TRUE(asks_for_exact_mode(split_line("-dst -Exact")));
    EXPECT_FALSE(asks_for_exact_mode(split_line("")));
    EXPECT_FALSE(asks_for_exact_mode(split_line("-image -exac exact --exact")));
    EXPECT_FALSE(asks_for_exact_mode({"-exact"}));  // the program's own name
    EXPECT_FALSE(asks_for_exact_mode({}));
}

TEST(exact_options, a_path_is_copied_from_an_image) {
    const exact_options options = options_of("-exact -image disk.dd -src /a.txt -dst out/");
    EXPECT_EQ(options.source.kind, source_kind::image);
    EXPECT_EQ(options.source.paths, words{"disk.dd"});
    ASSERT_TRUE(options.object);
    EXPECT_EQ(std::get<object_by_path>(*options.object).text, "/a.txt");
    EXPECT_EQ(options.destination, "out/");
    EXPECT_FALSE(options.offset);
    EXPECT_FALSE(options.ntfsvol);
    EXPECT_FALSE(options.sector_size);
    EXPECT_FALSE(options.help || options.volumes || options.raw || options.zero_unreadable ||
                 options.sparse || options.overwrite || options.keep_times || options.md5 || options.quiet);
    EXPECT_EQ(options.log_path, "");
}

TEST(exact_options, each_switch_sets_its_own_member) {
    EXPECT_TRUE(options_of(whole + "-raw").raw);
    EXPECT_TRUE(options_of(whole + "-zero_unreadable").zero_unreadable);
    EXPECT_TRUE(options_of(whole + "-sparse").sparse);
    EXPECT_TRUE(options_of(whole + "-overwrite").overwrite);
    EXPECT_TRUE(options_of(whole + "-keep_times").keep_times);
    EXPECT_TRUE(options_of(whole + "-md5").md5);
    EXPECT_TRUE(options_of(whole + "-quiet").quiet);
    EXPECT_EQ(options_of(whole + "-diags log.txt").log_path, "log.txt");
}

TEST(exact_options, options_count_in_any_letter_case_and_order) {
    const exact_options options = options_of("-DST b -Src /a -RAW -IMAGE d -Exact");
    EXPECT_EQ(options.source.paths, words{"d"});
    EXPECT_EQ(options.destination, "b");
    EXPECT_TRUE(options.raw);
}

TEST(exact_options, percent_signs_stay_as_typed) {
    EXPECT_EQ(
        options_of({"quarry", "-exact", "-image", "%HOME%", "-src", "/%PATH%", "-dst", "%TMP%"}).destination,
        "%TMP%");
}

TEST(exact_options, an_entry_may_have_a_sequence_number_and_a_stream) {
    auto entry_of = [](const std::string& line) {
        return std::get<object_by_entry>(*options_of("-exact -image d -dst b " + line).object);
    };
    EXPECT_EQ(entry_of("-mft 38").entry, 38u);
    EXPECT_FALSE(entry_of("-mft 38").sequence);
    EXPECT_EQ(entry_of("-mft 38").stream, "");
    EXPECT_EQ(entry_of("-mft 0x26-0x2").entry, 38u);
    EXPECT_EQ(entry_of("-mft 0x26-0x2").sequence, 2);
    EXPECT_EQ(entry_of("-mft 38-65535").sequence, 65535);
    EXPECT_EQ(entry_of("-src :Note -mft 38").stream, ":Note");
}

TEST(exact_options, text_that_is_no_entry_is_refused) {
    for (const std::string text : {"abc", "38-", "-2", "38-65536", "38-x", "38 -3x", "3.8", "38-1-1", "0x"}) {
        const words list = {"quarry", "-exact", "-image", "d", "-dst", "b", "-mft", text};
        EXPECT_EQ(refusal_of(list), "-mft \"" + text + "\" is no entry; say N or N-SEQUENCE");
    }
}

TEST(exact_options, clusters_are_one_unless_a_count_follows) {
    auto clusters_of = [](const std::string& line) {
        return std::get<object_by_clusters>(*options_of("-exact -image d " + line).object);
    };
    EXPECT_EQ(clusters_of("-cluster 0x64 -dst b").lcn, 100u);
    EXPECT_EQ(clusters_of("-cluster 0x64 -dst b").count, 1u);
    EXPECT_EQ(clusters_of("-cluster 100 7 -dst b").count, 7u);
    EXPECT_EQ(clusters_of("-dst b -cluster 100 7").count, 7u);
    EXPECT_EQ(refusal_of("-exact -image d -cluster 100 0 -dst b"), "-cluster \"0\": no cluster is asked for");
    EXPECT_EQ(refusal_of("-exact -image d -cluster 100 7x -dst b"), "-cluster \"7x\" is no number");
    EXPECT_EQ(refusal_of("-exact -image d -cluster 100 b"),
              "\"b\" stands alone; a source is named with -src, an image with -image");
}

TEST(exact_options, numbers_are_decimal_or_hexadecimal_of_64_bits) {
    EXPECT_EQ(exact_number("0"), 0u);
    EXPECT_EQ(exact_number("1048576"), 1048576u);
    EXPECT_EQ(exact_number("0x100100000"), 0x100100000u);
    EXPECT_EQ(exact_number("0XaBcD"), 0xABCDu);
    EXPECT_EQ(exact_number("18446744073709551615"), 0xFFFFFFFFFFFFFFFFu);
    EXPECT_EQ(exact_number("0xFFFFFFFFFFFFFFFF"), 0xFFFFFFFFFFFFFFFFu);
    for (const std::string_view text :
         {"", "0x", "x10", "-1", "+1", " 1", "1 ", "1g", "0x1g", "1a", "1.0", "18446744073709551616",
          "18446744073709551620", "0x10000000000000000"}) {
        EXPECT_FALSE(exact_number(text)) << text;
    }
}

TEST(exact_options, an_offset_that_is_no_number_is_refused) {
    EXPECT_EQ(options_of(whole + "-offset 0x100100000").offset, 0x100100000u);
    EXPECT_EQ(refusal_of(whole + "-offset 0x1g"), "-offset \"0x1g\" is no number");
    EXPECT_EQ(refusal_of(whole + "-offset 0x10000000000000000"),
              "-offset \"0x10000000000000000\" is no number");
}

TEST(exact_options, volumes_are_counted_from_one) {
    EXPECT_EQ(options_of(whole + "-ntfsvol 3").ntfsvol, 3u);
    EXPECT_EQ(options_of(whole + "-first_ntfsvol").ntfsvol, 1u);
    EXPECT_EQ(refusal_of(whole + "-ntfsvol 0"), "-ntfsvol \"0\": volumes are counted from 1");
}

TEST(exact_options, a_sector_has_one_of_four_sizes) {
    for (const std::uint32_t size : {512u, 1024u, 2048u, 4096u}) {
        EXPECT_EQ(options_of(whole + "-sector_size " + std::to_string(size)).sector_size, size);
    }
    for (const std::string size : {"0", "256", "513", "8192"}) {
        EXPECT_EQ(refusal_of(whole + "-sector_size " + size),
                  "-sector_size \"" + size + "\" is not 512, 1024, 2048 or 4096");
    }
}

TEST(exact_options, letters_may_be_repeated_and_are_a_letter_or_a_volume) {
    const std::string volume = "volume{0123abcd-4567-89EF-0000-fedcba987654}";
    EXPECT_EQ(options_of(whole + "-letter C -letter " + volume).letters, (words{"C", volume}));
    for (const std::string text :
         {"C:", "1", "CD", "Volume{}", "Volume{0123abcd-4567-89EF-0000-fedcba98765g}",
          "Volume{0123abcd_4567-89EF-0000-fedcba987654}"}) {
        EXPECT_EQ(refusal_of(whole + "-letter " + text),
                  "-letter \"" + text + "\" is neither a letter nor Volume{GUID}");
    }
}

TEST(exact_options, disk_files_are_a_list_and_may_be_repeated) {
    const words list = {"quarry", "-exact", "-vmdk", "a.vmdk | b.vmdk", "-vmdk", "c.vmdk", "-src",
                        "/a",     "-dst",   "b"};
    EXPECT_EQ(options_of(list).source.kind, source_kind::virtual_disk);
    EXPECT_EQ(options_of(list).source.paths, (words{"a.vmdk", "b.vmdk", "c.vmdk"}));
}

TEST(exact_options, a_chain_names_at_least_one_file) {
    for (const std::string list : {",", " ", ";", "|", " , ; | "}) {
        EXPECT_EQ(refusal_of(words{"quarry", "-exact", "-vmdk", list, "-src", "/a", "-dst", "b"}),
                  "-vmdk needs a value; this one names no file")
            << list;
    }
    EXPECT_EQ(options_of(words{"quarry", "-exact", "-vmdk", ",", "-vmdk", "a", "-src", "/a", "-dst", "b"})
                  .source.paths,
              words{"a"});
}

TEST(exact_options, the_listing_of_volumes_needs_neither_object_nor_destination) {
    EXPECT_TRUE(options_of("-exact -image d -volumes").volumes);
    EXPECT_EQ(refusal_of("-exact -image d -volumes -dst b"), "-volumes and -dst exclude each other");
    EXPECT_EQ(refusal_of("-exact -image d -volumes -src /a"), "-volumes and -src exclude each other");
}

TEST(exact_options, a_listing_needs_no_destination_and_takes_nothing_that_makes_copies) {
    const exact_options options = options_of("-exact -image d -list /a -recurse");
    ASSERT_TRUE(options.listing);
    EXPECT_EQ(options.listing->path, "/a");
    EXPECT_EQ(options.listing->kind->word, "-list");
    EXPECT_TRUE(options.recurse);
    EXPECT_FALSE(options.deleted || options.object.has_value());
    EXPECT_TRUE(options_of("-exact -image d -list / -deleted -letter C -ntfsvol 2 -diags l -quiet").deleted);
    EXPECT_EQ(refusal_of("-exact -image d -list / -dst b"), "-list and -dst exclude each other");
    EXPECT_EQ(refusal_of("-exact -image d -list / -md5"), "-list and -md5 exclude each other");
    EXPECT_EQ(refusal_of("-exact -image d -list / -mft 5"), "-list and -mft exclude each other");
    EXPECT_EQ(refusal_of("-exact -image d -list / -volumes"), "-volumes and -list exclude each other");
    EXPECT_EQ(refusal_of("-exact -image d -list / -recurse -deleted"),
              "-recurse and -deleted exclude each other");
    EXPECT_EQ(refusal_of(whole + "-recurse"), "-recurse needs -list");
    EXPECT_EQ(refusal_of(whole + "-deleted"), "-deleted needs -list");
    EXPECT_EQ(refusal_of("-exact -image d -list"), "-list needs a value");
}

TEST(exact_options, knows_a_command_line_whose_output_belongs_to_a_listing) {
    EXPECT_TRUE(asks_for_listing({"quarry", "-exact", "-LIST"}));
    EXPECT_FALSE(asks_for_listing({"quarry", "-exact", "-volumes"}));
    EXPECT_FALSE(asks_for_listing({"-list"}));
}

TEST(exact_options, verify_source_goes_with_an_image_and_nothing_that_chooses_or_copies) {
    const auto good = parse_exact_options(split_line("-exact -image d.E01 -verify_source -diags log -quiet"));
    ASSERT_TRUE(good) << good.error().text;
    EXPECT_TRUE(good->verify_source);
    EXPECT_FALSE(good->object);
    for (const std::string other : {"-offset 1", "-ntfsvol 1", "-first_ntfsvol", "-sector_size 512",
                                    "-volumes", "-src /a", "-mft 5", "-cluster 1", "-pipe", "-dst o"}) {
        EXPECT_EQ(refusal_of("-exact -image d.E01 -verify_source " + other),
                  "-verify_source and " + other.substr(0, other.find(' ')) + " exclude each other");
    }
    EXPECT_EQ(refusal_of("-exact -partition d -verify_source"),
              "-verify_source and -partition exclude each other");
}

TEST(exact_options, a_misspelt_option_is_refused_with_a_guess) {
    EXPECT_EQ(refusal_of("-exact -imgae d -src /a -dst b"), "\"-imgae\" is no option; did you mean -image?");
    EXPECT_EQ(refusal_of(whole + "-qwertz"), "\"-qwertz\" is no option; -exact -h lists them");
}

TEST(exact_options, a_word_without_an_option_is_refused) {
    EXPECT_EQ(refusal_of("-exact -image d a.txt b"),
              "\"a.txt\" stands alone; a source is named with -src, an image with -image");
    EXPECT_EQ(refusal_of(whole + "-raw yes"),
              "\"yes\" stands alone; a source is named with -src, an image with -image");
    EXPECT_EQ(refusal_of({"quarry", "-exact", ""}),
              "\"\" stands alone; a source is named with -src, an image with -image");
}

TEST(exact_options, a_refused_word_cannot_act_on_a_terminal) {
    EXPECT_EQ(refusal_of({"quarry", "-exact", "a\x1b[2J"}),
              "\"a\\u001B[2J\" stands alone; a source is named with -src, an image with -image");
}

TEST(exact_options, every_option_but_two_is_refused_when_it_is_given_twice) {
    for (const option_row& row : option_rows()) {
        if (row.state == option_state::refused || row.repeatable || row.id == option::help) {
            continue;
        }
        words list = {"quarry"};
        for (int i = 0; i < 2; ++i) {
            list.emplace_back(row.name);
            list.insert(list.end(), row.values, "1");
        }
        EXPECT_EQ(refusal_of(list), std::string(row.name) + " is given twice");
    }
}

TEST(exact_options, every_option_whose_value_is_missing_is_refused) {
    for (const option_row& row : option_rows()) {
        if (row.values == 0) {
            continue;
        }
        EXPECT_EQ(refusal_of({"quarry", "-exact", std::string(row.name)}),
                  std::string(row.name) + " needs a value");
        EXPECT_EQ(refusal_of({"quarry", std::string(row.name), "-EXACT"}),
                  std::string(row.name) + " needs a value; \"-EXACT\" is an option");
        EXPECT_EQ(refusal_of({"quarry", "-exact", std::string(row.name), "-meta"}),
                  std::string(row.name) + " needs a value; \"-meta\" is an option");
    }
}

TEST(exact_options, an_empty_path_is_refused) {
    for (const std::string option : {"-image", "-dst", "-diags"}) {
        words list = {"quarry", "-exact", "-src", "/a"};
        for (const std::string other : {"-image", "-dst", "-diags"}) {
            list.push_back(other);
            list.emplace_back(other == option ? "" : "x");
        }
        EXPECT_EQ(refusal_of(list), option + " needs a value; this one is empty");
    }
}

TEST(exact_options, every_option_of_the_default_mode_alone_is_refused_with_a_hint) {
    EXPECT_EQ(refusal_of(whole + "-meta"), "-meta is not taken with -exact: say -manifest");
    EXPECT_EQ(refusal_of(whole + "-filter *.txt"),
              "-filter is not taken with -exact: choose the lines before -pipe, with grep");
    EXPECT_EQ(refusal_of(whole + "-skip_sparse_clusters"),
              "-skip_sparse_clusters is not taken with -exact: say -sparse");
    EXPECT_EQ(refusal_of(whole + "-skip_sparse_clusters"),
              "-skip_sparse_clusters is not taken with -exact: say -sparse");
    EXPECT_EQ(refusal_of(whole + "-drivenum 0"),
              "-drivenum is not taken with -exact: give the device to -image");
    EXPECT_EQ(refusal_of(whole + "-ignore_image_size"),
              "-ignore_image_size is not taken with -exact: it is not needed");
    for (const option_row& row : option_rows()) {
        if (row.state == option_state::refused) {
            EXPECT_THAT(refusal_of(whole + std::string(row.name) + " x"),
                        testing::StartsWith(std::string(row.name) +
                                            " is not taken with -exact: " + std::string(row.hint)));
        }
    }
}

TEST(exact_options, what_excludes_each_other_is_refused) {
    EXPECT_EQ(refusal_of(whole + "-partition p"), "-image and -partition exclude each other");
    EXPECT_EQ(refusal_of(whole + "-vmdk v"), "-image and -vmdk exclude each other");
    EXPECT_EQ(refusal_of(whole + "-cluster 5"), "-src and -cluster exclude each other");
    EXPECT_EQ(refusal_of(whole + "-mft 5"),
              "-src and -mft exclude each other; a stream of an entry is -src :NAME");
    EXPECT_EQ(refusal_of(whole + "-pipe"), "-src and -pipe exclude each other");
    EXPECT_EQ(refusal_of("-exact -image d -dst b -mft 5 -cluster 5"), "-mft and -cluster exclude each other");
    EXPECT_EQ(refusal_of(whole + "-offset 1 -ntfsvol 1"), "-offset and -ntfsvol exclude each other");
    EXPECT_EQ(refusal_of(whole + "-ntfsvol 1 -first_ntfsvol"),
              "-ntfsvol and -first_ntfsvol exclude each other");
    EXPECT_EQ(refusal_of("-exact -partition p -src /a -dst b -offset 1"),
              "-partition and -offset exclude each other");
    EXPECT_EQ(refusal_of("-exact -image d -cluster 5 -dst b -keep_times"),
              "-cluster and -keep_times exclude each other");
}

TEST(exact_options, a_stream_without_an_entry_is_refused) {
    EXPECT_EQ(refusal_of("-exact -image d -dst b -src :Note"),
              "-src \":Note\" is a stream; say -mft to name its entry");
}

TEST(exact_options, a_list_needs_a_directory) {
    const exact_options options = options_of("-exact -image d -pipe -dst out/");
    EXPECT_TRUE(options.pipe);
    EXPECT_FALSE(options.object);
    EXPECT_EQ(refusal_of("-exact -image d -pipe -dst out"), "-pipe needs a directory; say -dst DIR/");
    EXPECT_EQ(refusal_of("-exact -image d -pipe"), "no destination; say -dst");
    EXPECT_EQ(refusal_of("-exact -image d -pipe -mft 5 -dst out/"), "-pipe and -mft exclude each other");
    EXPECT_EQ(refusal_of("-exact -image d -volumes -pipe"), "-volumes and -pipe exclude each other");
}

TEST(exact_options, directories_of_the_path_need_a_directory_and_a_path) {
    EXPECT_TRUE(options_of("-exact -image d -src /a -dst out/ -tree").tree);
    EXPECT_TRUE(options_of("-exact -image d -mft 5 -dst out/ -tree").tree);
    EXPECT_EQ(refusal_of(whole + "-tree"), "-tree needs a directory; say -dst DIR/");
    EXPECT_EQ(refusal_of("-exact -image d -cluster 5 -dst out/ -tree"),
              "-cluster and -tree exclude each other");
    EXPECT_EQ(refusal_of("-exact -image d -volumes -tree"), "-volumes and -tree exclude each other");
}

TEST(exact_options, what_is_missing_is_said) {
    EXPECT_EQ(refusal_of("-exact"), "no source; say -image, -partition or -vmdk");
    EXPECT_EQ(refusal_of("-exact -image d -dst b"), "nothing to copy; say -src, -mft, -cluster or -pipe");
    EXPECT_EQ(refusal_of("-exact -image d -src /a"), "no destination; say -dst");
}

TEST(exact_options, workers_are_1_to_64) {
    EXPECT_EQ(options_of(whole).threads, std::nullopt);
    EXPECT_EQ(options_of(whole + "-threads 1").threads, 1u);
    EXPECT_EQ(options_of(whole + "-THREADS 0x40").threads, 64u);
    EXPECT_EQ(refusal_of(whole + "-threads 0"), "-threads \"0\" is not 1 to 64");
    EXPECT_EQ(refusal_of(whole + "-threads 65"), "-threads \"65\" is not 1 to 64");
    EXPECT_EQ(refusal_of(whole + "-threads 0x100000001"), "-threads \"0x100000001\" is not 1 to 64");
    EXPECT_EQ(refusal_of(whole + "-threads 18446744073709551616"),
              "-threads \"18446744073709551616\" is no number");
    EXPECT_EQ(refusal_of(whole + "-threads two"), "-threads \"two\" is no number");
    EXPECT_EQ(refusal_of(whole + "-threads -2"), "-threads \"-2\" is no number");
    EXPECT_EQ(refusal_of(whole + "-threads"), "-threads needs a value");
    EXPECT_EQ(refusal_of(whole + "-threads -quiet"), "-threads needs a value; \"-quiet\" is an option");
    EXPECT_EQ(refusal_of(whole + "-threads 2 -threads 2"), "-threads is given twice");
    EXPECT_EQ(refusal_of("-exact -image d -list / -threads 2"), "-list and -threads exclude each other");
}

TEST(exact_options, a_manifest_goes_with_digests_and_with_what_the_user_knows_of_the_source) {
    const std::string digest = "0123456789abcdef0123456789ABCDEF0123456789abcdef0123456789ABCDEF";
    EXPECT_FALSE(options_of(whole).sha256);
    EXPECT_TRUE(options_of(whole + "-sha256").sha256);
    const exact_options options = options_of(whole + "-manifest m.jsonl -source_sha256 " + digest);
    EXPECT_EQ(options.manifest_path, "m.jsonl");
    EXPECT_TRUE(options.sha256);
    EXPECT_EQ(options.source_sha256, "0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef");
    EXPECT_TRUE(options_of("-exact -image d -dst b -cluster 5 -manifest m -sha256").sha256);
    EXPECT_EQ(refusal_of(whole + "-source_sha256 " + digest), "-source_sha256 needs -manifest");
    EXPECT_TRUE(options_of(whole + "-manifest m -resume").resume);
    EXPECT_FALSE(options_of(whole + "-manifest m").resume);
    EXPECT_EQ(refusal_of(whole + "-resume"), "-resume needs -manifest");
    EXPECT_EQ(refusal_of(whole + "-manifest m -resume -md5"), "-resume and -md5 exclude each other");
    EXPECT_EQ(refusal_of("-exact -image d -volumes -manifest m"),
              "-manifest and -volumes exclude each other");
}

TEST(exact_options, a_digest_of_the_source_has_64_hexadecimal_digits) {
    const std::string digest(64, 'a');
    for (const std::string& wrong :
         {digest.substr(1), digest + "a", digest.substr(1) + "g", "0x" + digest.substr(2)}) {
        EXPECT_EQ(refusal_of(whole + "-manifest m -source_sha256 " + wrong),
                  "-source_sha256 \"" + wrong + "\" is no SHA-256; it has 64 hexadecimal digits");
    }
}

TEST(exact_options, help_is_given_whatever_else_there_is) {
    for (const std::string line :
         {"-exact -h", "-exact -HELP", "--help -exact -nonsense", "-exact -dst out -h"}) {
        EXPECT_TRUE(options_of(line).help) << line;
    }
    // In the place of a value it is an option like any other.
    EXPECT_EQ(refusal_of("-exact -image disk.dd -dst -h"), "-dst needs a value; \"-h\" is an option");
}

}  // namespace quarry::test
