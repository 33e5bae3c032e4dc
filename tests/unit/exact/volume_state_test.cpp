#include "exact/volume_state.h"

#include "support/opened_exact_volume.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace quarry::test {

using exact::journal_state;
using testing::HasSubstr;

namespace {

// A restart page of 4,096 bytes, its restart area at 0x30.
bytes restart_page(std::uint64_t lsn, std::uint16_t flags, std::uint16_t clients_in_use) {
    byte_writer out(4096);
    out.text(0, "RSTR").u16(4, 0x1E).u16(6, 9).u32(16, 4096).u16(24, 0x30);
    out.u64(0x30, lsn).u16(0x3C, clients_in_use).u16(0x3E, flags);
    bytes page = out.take();
    protect_sector_ends(page, 0x1E, 9, 0x0707, 512);
    return page;
}

exact::volume_state state_with(const bytes& journal, std::string& told, std::uint16_t flags = 0) {
    volume_builder volume;
    volume.add_file_at(2, "$LogFile").stored_data(journal);
    byte_writer information(12);
    information.u8(8, 3).u8(9, 1).u16(10, flags);
    volume.add_file_at(3, "$Volume")
        .attribute(attribute_builder::resident(0x60, ntfs_name("label").on_disk()))
        .attribute(attribute_builder::resident(0x70, information.take()));
    opened_exact_volume opened(volume);
    const exact::volume_state state = opened.volume().state();
    told = text_of(opened.told());
    return state;
}

journal_state journal_of(const std::vector<bytes>& pages) {
    std::string told;
    return state_with(byte_writer(concat(pages)).pad_to_multiple(65536).take(), told).journal;
}

constexpr std::uint16_t none = 0xFFFF;

}  // namespace

TEST(volume_state, reports_version_label_and_the_dirty_flag) {
    std::string told;
    exact::volume_state state = state_with(bytes(65536, 0xFF), told);
    EXPECT_EQ(state.version_text(), "3.1");
    EXPECT_EQ(state.label, u"label");
    EXPECT_EQ(state.dirty, false);
    EXPECT_EQ(told, "");
    state = state_with(bytes(65536, 0xFF), told, 0x4001);
    EXPECT_EQ(state.dirty, true);
    EXPECT_EQ(told, "dirty volume: is marked dirty\n");
}

TEST(volume_state, warns_of_a_version_that_it_does_not_know) {
    const auto warning = [](std::uint8_t major, std::uint8_t minor) {
        volume_builder volume;
        byte_writer information(12);
        volume.add_file_at(3, "$Volume")
            .attribute(attribute_builder::resident(0x70, information.u8(8, major).u8(9, minor).take()));
        volume.add_file_at(2, "$LogFile").stored_data(bytes(4096, 0xFF));
        opened_exact_volume opened(volume);
        static_cast<void>(opened.volume());
        return text_of(opened.told());
    };
    EXPECT_EQ(warning(1, 2), "");
    EXPECT_EQ(warning(3, 0), "");
    EXPECT_EQ(warning(3, 1), "");
    EXPECT_EQ(warning(3, 2), "version volume: has version 3.2\n");
    EXPECT_EQ(warning(1, 1), "version volume: has version 1.1\n");
}

TEST(volume_state, is_unknown_where_it_cannot_be_read) {
    const volume_builder volume;
    opened_exact_volume opened(volume);
    EXPECT_EQ(opened.volume().state().version_text(), "unknown");
    EXPECT_EQ(opened.volume().state().dirty, std::nullopt);
    EXPECT_EQ(opened.volume().state().journal, journal_state::unknown);
    EXPECT_THAT(text_of(opened.told()), HasSubstr("volume-information record 3: begins with"));
    EXPECT_THAT(text_of(opened.told()), HasSubstr("; the state of the journal is unknown\n"));
}

TEST(volume_state, reports_a_journal_that_was_closed) {
    // By the flag, and by no client being in use.
    EXPECT_EQ(journal_of({restart_page(5, 2, 0), restart_page(5, 2, 0)}), journal_state::clean);
    EXPECT_EQ(journal_of({restart_page(5, 0, none), restart_page(5, 0, none)}), journal_state::clean);
    EXPECT_EQ(journal_of({restart_page(5, 0, 0), restart_page(5, 0, 0)}), journal_state::not_clean);
}

TEST(volume_state, counts_the_restart_page_with_the_higher_number) {
    EXPECT_EQ(journal_of({restart_page(5, 2, 0), restart_page(6, 0, 0)}), journal_state::not_clean);
    EXPECT_EQ(journal_of({restart_page(6, 2, 0), restart_page(5, 0, 0)}), journal_state::clean);
}

TEST(volume_state, takes_the_one_restart_page_that_is_sound) {
    bytes torn = restart_page(9, 0, 0);
    torn[510] ^= 1;
    EXPECT_EQ(journal_of({torn, restart_page(5, 2, 0)}), journal_state::clean);
    EXPECT_EQ(journal_of({restart_page(5, 2, 0), torn}), journal_state::clean);
    EXPECT_EQ(journal_of({torn, torn}), journal_state::unknown);
    EXPECT_EQ(journal_of({bytes(4096), restart_page(5, 0, 0)}), journal_state::not_clean);
}

TEST(volume_state, reports_an_empty_journal) {
    EXPECT_EQ(journal_of({bytes(65536, 0xFF)}), journal_state::empty);
    // A restart page may lie anywhere in the first 128 KiB.
    EXPECT_EQ(journal_of({bytes(65536, 0xFF), restart_page(5, 0, 0)}), journal_state::unknown);
    EXPECT_EQ(journal_of({bytes(65536)}), journal_state::unknown);
}

TEST(volume_state, calls_a_journal_empty_after_all_of_it_was_read) {
    const auto checked = [](const bytes& journal, std::string& told) {
        volume_builder volume({.system_files = true});
        volume.add_file_at(2, "$LogFile").stored_data(journal);
        opened_exact_volume opened(volume);
        EXPECT_EQ(opened.volume().state().journal, journal_state::empty);
        exact::notices later;
        opened.volume().check_empty_journal(later);
        told = text_of(later);
        return opened.volume().state().journal;
    };
    std::string told;
    bytes journal(0x40000, 0xFF);
    EXPECT_EQ(checked(journal, told), journal_state::empty);
    EXPECT_EQ(told, "");
    EXPECT_EQ(checked(bytes(4096, 0xFF), told), journal_state::empty);
    for (const std::size_t place : {std::size_t{0x20000}, journal.size() - 1}) {
        journal[place] = 0xFE;
        EXPECT_EQ(checked(journal, told), journal_state::unknown) << place;
        EXPECT_EQ(
            told,
            "journal record 2: $LogFile has no sound restart page; the state of the journal is unknown\n");
        journal[place] = 0xFF;
    }
}

TEST(volume_state, leaves_the_state_of_a_journal_that_was_used) {
    volume_builder volume({.system_files = true});
    volume.add_file_at(2, "$LogFile")
        .stored_data(byte_writer(restart_page(5, 2, 0)).pad_to_multiple(65536).take());
    opened_exact_volume opened(volume);
    exact::notices later;
    opened.volume().check_empty_journal(later);
    EXPECT_EQ(opened.volume().state().journal, journal_state::clean);
    EXPECT_EQ(text_of(later), "");
}

TEST(volume_state, warns_of_a_journal_that_was_not_closed) {
    std::string told;
    static_cast<void>(state_with(byte_writer(restart_page(5, 0, 0)).pad_to_multiple(65536).take(), told));
    EXPECT_EQ(told, "journal journal: was not closed; what the system would replay is not in the copy\n");
    EXPECT_EQ(exact::journal_text(journal_state::not_clean), "not clean");
    EXPECT_EQ(exact::journal_text(journal_state::clean), "clean");
    EXPECT_EQ(exact::journal_text(journal_state::empty), "empty");
    EXPECT_EQ(exact::journal_text(journal_state::unknown), "unknown");
}

}  // namespace quarry::test
