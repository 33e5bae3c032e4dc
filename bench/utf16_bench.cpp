// How fast names become text and text becomes lower case: each entry of a directory costs one of each.
#include "foundation/ql_string.h"
#include "support/byte_writer.h"

#include <benchmark/benchmark.h>

namespace quarry::test {
namespace {

bytes units_of(std::u16string_view text) {
    bytes units;
    for (const char16_t unit : text) {
        units.push_back(static_cast<std::uint8_t>(unit & 0xFF));
        units.push_back(static_cast<std::uint8_t>(unit >> 8));
    }
    return units;
}

void to_wide(benchmark::State& state, std::u16string_view text, std::wstring_view expected) {
    const bytes units = units_of(text);
    std::wstring name;
    for (auto _ : state) {
        read_utf16_wide(name, byte_view(units), static_cast<std::int64_t>(units.size()));
        benchmark::DoNotOptimize(name);
    }
    if (name != expected) {
        state.SkipWithError("the name is wrong");
    }
    state.SetItemsProcessed(state.iterations());
}

void ascii_name(benchmark::State& state) {
    to_wide(state, u"Quarterly figures 2026.xlsx", L"Quarterly figures 2026.xlsx");
}
void cyrillic_name(benchmark::State& state) {
    to_wide(state, u"Квартальный отчёт 2026.xlsx", L"Квартальный отчёт 2026.xlsx");
}
void name_with_surrogates(benchmark::State& state) {
    to_wide(state, u"\U0001F600 \U0001F680 report.txt", L"\U0001F600 \U0001F680 report.txt");
}

void narrow_and_lower(benchmark::State& state) {
    const std::wstring name = L"Quarterly figures 2026.xlsx";
    std::string text;
    for (auto _ : state) {
        text = narrow(name);
        lower_narrow(text);
        benchmark::DoNotOptimize(text);
    }
    if (text != "quarterly figures 2026.xlsx") {
        state.SkipWithError("the text is wrong");
    }
    state.SetItemsProcessed(state.iterations());
}

BENCHMARK(ascii_name);
BENCHMARK(cyrillic_name);
BENCHMARK(name_with_surrogates);
BENCHMARK(narrow_and_lower);

}  // namespace
}  // namespace quarry::test
