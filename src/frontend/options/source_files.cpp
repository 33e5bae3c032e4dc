#include "frontend/options/source_files.h"

#include "disk/drive_source.h"
#include "disk/source.h"
#include "foundation/ql_number.h"
#include "foundation/ql_portable_dir.h"
#include "foundation/ql_text.h"
#include "frontend/options/expand_env.h"
#include "frontend/options/source_words.h"

namespace quarry {

namespace {

// A path counts as typed and as an image path is made absolute.
void add_path(std::vector<std::string>& files, const std::string& path) {
    files.push_back(path);
    files.push_back(canonical_path(path, '/'));
}

void add_listed(std::vector<std::string>& files, std::string list) {
    files.push_back(list);
    replace_char(list, ',', '|', false);
    replace_char(list, ';', '|', false);
    split(files, list, '|', {.trim_each = true, .append = true});
}

void add_drive(std::vector<std::string>& files, std::string number) {
    std::int64_t drive = 0;
    parse_i64(drive, number);
    files.push_back(drive_device(static_cast<std::int32_t>(drive)));
}

void add_value(std::vector<std::string>& files, source_value kind, const std::string& value) {
    switch (kind) {
        case source_value::files:
            add_listed(files, value);
            break;
        case source_value::device:
            add_path(files, value.size() == 1 ? value + ":" : value);
            break;
        case source_value::file:
            add_path(files, value);
            break;
        case source_value::number:
            add_drive(files, value);
            break;
    }
}

// What was meant by a word beside a mistyped option is not known, so it counts as each of them.
void add_any_value(std::vector<std::string>& files, const std::string& value) {
    if (value.empty()) {
        return;
    }
    add_value(files, source_value::files, value);
    add_value(files, source_value::device, value);
    add_value(files, source_value::file, value);
    if (value.find_first_not_of("0123456789") == std::string::npos) {
        add_drive(files, value);
    }
}

}  // namespace

std::vector<std::string> files_of_source_options(const arg_list& args) {
    std::vector<std::string> files;
    for (std::size_t index = 0; index < args.size(); ++index) {
        const std::string& word = args[index];
        const source_likeness likeness = likeness_of(word);
        if (likeness.exact == nullptr && !likeness.alike) {
            continue;
        }
        for (const std::string& value : possible_values(args, index)) {
            if (likeness.exact != nullptr) {
                add_value(files, likeness.exact->value, value);
            } else {
                add_any_value(files, value);
            }
        }
        if (const std::size_t sign = word.find('='); sign != std::string::npos) {
            add_any_value(files, word.substr(sign + 1));
        }
    }
    return files;
}

std::vector<std::string> source_files_ahead(const arg_list& args) {
    std::vector<std::string> files = files_of_source_options(args);
    for (const std::string& word : args) {
        add_named_volume(files, word);
        add_named_volume(files, canonical_path(word, '/'));
        add_named_volume(files, canonical_path(expand_env(word, true), '/'));
    }
    return files;
}

}  // namespace quarry
