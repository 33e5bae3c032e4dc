#include "frontend/exact/broken_run.h"

#include <exception>
#include <new>
#include <utility>

namespace quarry::exact {

failure failure_in_flight(std::string where) {
    try {
        throw;
    } catch (const std::bad_alloc&) {
        return {failure_code::memory, std::move(where), "memory ran out", std::nullopt};
    } catch (const std::exception& fault) {
        return {failure_code::fault, std::move(where), std::string("a fault of the program: ") + fault.what(),
                std::nullopt};
    }
}

}  // namespace quarry::exact
