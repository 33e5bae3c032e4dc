#include "foundation/ql_time_format.h"

#include <cstdint>
#include <sstream>
#include <string>
#include <utility>

#include <gtest/gtest.h>

namespace ql {
namespace {

using texts = std::pair<std::string, std::string>;

// 2019-03-07 18:22:41.0934567 (GNU date: 1551982961 seconds since 1970)
const time march_7(131964565610934567, type_time::filetime);
const time not_valid(0, type_time::filetime);

texts fixed_form(std::uint64_t filetime, bool with_fraction = true) {
    texts out = {"before", "before"};
    format_date_time(out.first, out.second, time(filetime, type_time::filetime), with_fraction);
    return out;
}

std::string date_by(const char* pattern, const time& value = march_7) {
    std::string date;
    std::string time_of_day;
    EXPECT_TRUE(format_with_patterns(date, time_of_day, value, pattern, ""));
    EXPECT_EQ(time_of_day, "");
    return date;
}

std::string time_by(const char* pattern, const time& value = march_7) {
    std::string date;
    std::string time_of_day;
    EXPECT_TRUE(format_with_patterns(date, time_of_day, value, "", pattern));
    return time_of_day;
}

TEST(fixed_form, date_time_and_fraction_are_always_written_one_way) {
    EXPECT_EQ(fixed_form(131964565610934567), texts("2019-03-07", "18:22:41.093"));
    EXPECT_EQ(fixed_form(131964565610934567, false), texts("2019-03-07", "18:22:41"));
}

TEST(fixed_form, zero_gives_empty_texts) {
    EXPECT_EQ(fixed_form(0), texts("", ""));
}

TEST(fixed_form, the_first_second_of_1970_gives_empty_texts_and_the_second_one_prints) {
    EXPECT_EQ(fixed_form(116444736000000000), texts("", ""));
    EXPECT_EQ(fixed_form(116444736010000000), texts("1970-01-01", "00:00:01.000"));
}

TEST(fixed_form, times_in_1850_are_empty_and_times_in_1900_print_in_full) {
    EXPECT_EQ(fixed_form(78576480000000000), texts("", ""));
    EXPECT_EQ(fixed_form(94354848000000000), texts("1900-01-01", "00:00:00.000"));
}

TEST(fixed_form, a_value_with_the_top_bit_set_gives_empty_texts) {
    EXPECT_EQ(fixed_form(0x8000000000000000), texts("", ""));
}

TEST(fixed_form, the_millisecond_after_a_leap_days_last_is_in_march) {
    EXPECT_EQ(fixed_form(131012639999990000), texts("2016-02-29", "23:59:59.999"));
    EXPECT_EQ(fixed_form(131012640000000000), texts("2016-03-01", "00:00:00.000"));
}

TEST(fixed_form, the_last_tick_of_a_second_is_cut_not_rounded) {
    EXPECT_EQ(fixed_form(131012639999999999), texts("2016-02-29", "23:59:59.999"));
}

TEST(stream_inserter, date_blank_and_time_with_fraction_are_written) {
    std::ostringstream out;
    out << march_7;
    EXPECT_EQ(out.str(), "2019-03-07 18:22:41.093");
}

TEST(stream_inserter, a_time_that_is_not_valid_writes_only_the_blank) {
    std::ostringstream out;
    out << not_valid;
    EXPECT_EQ(out.str(), " ");
}

TEST(date_pattern, usual_patterns_give_their_dates) {
    EXPECT_EQ(date_by("mm/dd/yyyy"), "03/07/2019");
    EXPECT_EQ(date_by("yyyy-mm-dd"), "2019-03-07");
    EXPECT_EQ(date_by("yyyy/mm/dd"), "2019/03/07");
    EXPECT_EQ(date_by("dd/mm/yy"), "07/03/19");
    EXPECT_EQ(date_by("mmm dd, yyyy"), "Mar 07, 2019");
    EXPECT_EQ(date_by("dd mmm yyyy"), "07 Mar 2019");
    EXPECT_EQ(date_by("yy-mm-dd"), "19-03-07");
}

TEST(date_pattern, the_separator_is_a_slash_before_a_dash_before_a_blank) {
    EXPECT_EQ(date_by("mm-dd/yyyy"), "03/07/2019");
    EXPECT_EQ(date_by("mm dd-yyyy"), "03-07-2019");
    EXPECT_EQ(date_by("mm dd yyyy"), "03 07 2019");
    EXPECT_EQ(date_by("mm.dd.yyyy"), "03/07/2019");
    EXPECT_EQ(date_by("yyyymmdd"), "2019/03/07");
}

TEST(date_pattern, the_year_leads_only_from_the_very_start) {
    EXPECT_EQ(date_by(" yyyy-mm-dd"), "03-07-2019");
    EXPECT_EQ(date_by("mm-yyyy-dd"), "03-07-2019");
    EXPECT_EQ(date_by("yyyy-dd-mm"), "2019-07-03");
}

TEST(date_pattern, the_comma_after_the_day_needs_a_blank_as_separator_and_the_month_in_front) {
    EXPECT_EQ(date_by("mm dd, yyyy"), "03 07, 2019");
    EXPECT_EQ(date_by("mmm/dd, yyyy"), "Mar/07/2019");
    EXPECT_EQ(date_by("dd, mmm yyyy"), "07 Mar 2019");
    EXPECT_EQ(date_by(", mmm dd yyyy"), "Mar 07 2019");
}

TEST(date_pattern, a_pattern_that_lacks_year_month_or_day_always_gives_month_day_four_digit_year) {
    EXPECT_EQ(date_by("yyyy-mm"), "03/07/2019");
    EXPECT_EQ(date_by("yy-mmm"), "03/07/2019");
    EXPECT_EQ(date_by("dd-yy"), "03/07/2019");
    EXPECT_EQ(date_by("mm-dd"), "03/07/2019");
    EXPECT_EQ(date_by("anything"), "03/07/2019");
    EXPECT_EQ(date_by(""), "03/07/2019");
}

TEST(date_pattern, every_month_has_its_name) {
    const char* const names[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                 "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    time value = march_7;
    for (std::uint16_t month = 1; month <= 12; ++month) {
        value.system_time.wMonth = month;
        EXPECT_EQ(date_by("mmm-dd-yy", value), std::string(names[month - 1]) + "-07-19");
    }
}

TEST(date_pattern, a_month_out_of_range_has_an_empty_name) {
    time value = march_7;
    value.system_time.wMonth = 0;
    EXPECT_EQ(date_by("mmm-dd-yy", value), "-07-19");
    value.system_time.wMonth = 13;
    EXPECT_EQ(date_by("mmm-dd-yy", value), "-07-19");
}

TEST(time_pattern, hours_minutes_and_seconds_are_written_as_they_are_named) {
    EXPECT_EQ(time_by("hh:mm:ss"), "18:22:41");
    EXPECT_EQ(time_by("hh:mm"), "18:22");
    EXPECT_EQ(time_by("ss"), ":41");
    EXPECT_EQ(time_by("hh-mm"), "");
    EXPECT_EQ(time_by(""), "");
}

TEST(time_pattern, numbers_of_one_digit_have_zeros_in_front) {
    // 2019-03-07 01:02:03.0040056: 1551920523 seconds since 1970
    const time early(131963941230040056, type_time::filetime);
    EXPECT_EQ(time_by("hh:mm:ss", early), "01:02:03");
    EXPECT_EQ(time_by("hh:mm", early), "01:02");
    EXPECT_EQ(time_by("ss.xxx", early), ":03.004");
    EXPECT_EQ(time_by("ss.xxxxxx", early), ":03.004005");
    EXPECT_EQ(time_by("ss.xxxxxxxxx", early), ":03.004005600");
}

TEST(time_pattern, the_fraction_has_three_to_nine_digits_and_is_cut) {
    EXPECT_EQ(time_by("hh:mm:ss.x"), "18:22:41");
    EXPECT_EQ(time_by("hh:mm:ss.xx"), "18:22:41");
    EXPECT_EQ(time_by("hh:mm:ss.xxx"), "18:22:41.093");
    EXPECT_EQ(time_by("hh:mm:ss.xxxx"), "18:22:41.0934");
    EXPECT_EQ(time_by("hh:mm:ss.xxxxx"), "18:22:41.09345");
    EXPECT_EQ(time_by("hh:mm:ss.xxxxxx"), "18:22:41.093456");
    EXPECT_EQ(time_by("hh:mm:ss.xxxxxxx"), "18:22:41.0934567");
    EXPECT_EQ(time_by("hh:mm:ss.xxxxxxxx"), "18:22:41.09345670");
    EXPECT_EQ(time_by("hh:mm:ss.xxxxxxxxx"), "18:22:41.093456700");
}

TEST(time_pattern, ten_digits_give_no_fraction_not_all_there_are) {
    EXPECT_EQ(time_by("hh:mm:ss.xxxxxxxxxx"), "18:22:41");
}

TEST(time_pattern, fraction_digits_are_counted_from_the_first_three_to_the_last_one) {
    EXPECT_EQ(time_by("xxx--x"), ".093456");
    EXPECT_EQ(time_by("xx-xxx"), ".093");
}

TEST(patterns, a_time_that_is_not_valid_is_false_with_empty_texts) {
    std::string date = "before";
    std::string time_of_day = "before";
    EXPECT_FALSE(format_with_patterns(date, time_of_day, not_valid, "mm/dd/yyyy", "hh:mm:ss"));
    EXPECT_EQ(date, "");
    EXPECT_EQ(time_of_day, "");
}

struct layout_case {
    const char* pattern;
    bool accepted;
    char separator;
    std::uint32_t flags;
};

TEST(validate_patterns, a_date_pattern_gives_its_separator_and_flags) {
    const layout_case cases[] = {
        {"", true, 0, 0x00},
        {"yyyy-mm-dd", true, '-', 0x02 | 0x04 | 0x80},
        {"mm/dd/yyyy", true, '/', 0x02 | 0x04 | 0x40},
        {"dd/mm/yy", true, '/', 0x02 | 0x08 | 0x20},
        {"mmm dd, yyyy", true, ' ', 0x01 | 0x04 | 0x10 | 0x40},
        {"yymmdd", true, 0, 0x02 | 0x08 | 0x80},
        {"yyyy-dd-mm", false, '-', 0x02 | 0x04},
        {"dd-yyyy-mm", false, '-', 0x02 | 0x04},
        {"mm-yyyy-dd", false, '-', 0x02 | 0x04},
        {"yyyy-mm", false, '-', 0x02 | 0x04},
        {"mm-dd", false, '-', 0x02},
        {"dd-yy", false, '-', 0x08},
        {"x", false, 0, 0x00},
    };
    for (const layout_case& expected : cases) {
        time_layout settings;
        settings.flags = 0xFFFF;
        settings.first_year = 7;
        EXPECT_EQ(validate_patterns(settings, expected.pattern, "", false), expected.accepted)
            << expected.pattern;
        EXPECT_EQ(settings.separator, expected.separator) << expected.pattern;
        EXPECT_EQ(settings.flags, expected.flags) << expected.pattern;
        EXPECT_EQ(settings.first_year, 1900);
        EXPECT_EQ(settings.last_year, 2600);
    }
}

TEST(validate_patterns, a_time_pattern_gives_its_fraction_digits_up_to_nine) {
    time_layout settings;
    EXPECT_TRUE(validate_patterns(settings, "", "hh:mm:ss", false));
    EXPECT_EQ(settings.fraction_digits, 0u);
    EXPECT_TRUE(validate_patterns(settings, "", "hh:mm:ss.xxx", false));
    EXPECT_EQ(settings.fraction_digits, 3u);
    EXPECT_TRUE(validate_patterns(settings, "", "hh:mm:ss.xxxxxxxxx", false));
    EXPECT_EQ(settings.fraction_digits, 9u);
    EXPECT_TRUE(validate_patterns(settings, "", "hh:mm:ss.xxxxxxxxxxxx", false));
    EXPECT_EQ(settings.fraction_digits, 9u);
    EXPECT_TRUE(validate_patterns(settings, "", "no time at all", false));
    EXPECT_EQ(settings.fraction_digits, 0u);
}

TEST(validate_patterns, the_pair_flag_is_kept) {
    time_layout settings;
    EXPECT_TRUE(validate_patterns(settings, "", "", true));
    EXPECT_TRUE(settings.paired);
    EXPECT_TRUE(validate_patterns(settings, "", "", false));
    EXPECT_FALSE(settings.paired);
}

std::string anomaly(std::uint64_t created, std::uint64_t modified, std::uint64_t mft_changed,
                    std::uint64_t accessed, std::uint64_t reference) {
    std::string word = "before";
    const bool flag = file_time_anomaly(word, created, modified, mft_changed, accessed, reference);
    EXPECT_EQ(flag, !word.empty());
    return word;
}

TEST(file_time_anomaly, times_up_to_the_reference_are_in_order) {
    EXPECT_EQ(anomaly(1, 2, 3, 4, 4), "");
}

TEST(file_time_anomaly, any_time_after_the_reference_is_the_future) {
    EXPECT_EQ(anomaly(5, 1, 1, 1, 4), "future");
    EXPECT_EQ(anomaly(1, 5, 1, 1, 4), "future");
    EXPECT_EQ(anomaly(1, 1, 5, 1, 4), "future");
    EXPECT_EQ(anomaly(1, 1, 1, 5, 4), "future");
}

TEST(file_time_anomaly, any_zero_is_null_and_overrides_the_future) {
    EXPECT_EQ(anomaly(0, 9, 9, 9, 4), "null");
    EXPECT_EQ(anomaly(9, 0, 9, 9, 4), "null");
    EXPECT_EQ(anomaly(9, 9, 0, 9, 4), "null");
    EXPECT_EQ(anomaly(9, 9, 9, 0, 4), "null");
}

TEST(file_time_anomaly, a_reference_of_zero_is_later_than_everything) {
    EXPECT_EQ(anomaly(1, 2, 3, 0xFFFFFFFFFFFFFFFF, 0), "");
}

}  // namespace
}  // namespace ql
