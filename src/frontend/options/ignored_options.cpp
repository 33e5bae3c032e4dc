#include "frontend/options/ignored_options.h"

#include "frontend/options/early_words.h"

#include <string>

namespace quarry {

void drop_ignored_options(arg_list& args) {
    std::string value;
    for (const early_word& option : ignored_words) {
        if (option.values != 0) {
            find_value(option.word, value, args);
        } else {
            find_flag(option.word, args);
        }
    }
}

}  // namespace quarry
