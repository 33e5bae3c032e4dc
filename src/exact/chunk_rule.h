// The rules of a chunk of system compression, which its decoder names by what is wrong where one is broken.
#pragma once

#include "exact/failure.h"

#include <cstdint>
#include <string>

namespace quarry::exact {

inline constexpr const char* ends_early = "it ends before all of its bytes are decoded";

// A success where `broken_rule` is null; otherwise the failure wof at chunk `number` of the stream `stream`.
[[nodiscard]] inline result<void> unless_broken(const char* broken_rule, const std::string& stream,
                                                std::uint64_t number) {
    if (broken_rule != nullptr) {
        return fail(failure_code::wof, where::chunk(stream, number), broken_rule);
    }
    return {};
}

}  // namespace quarry::exact
