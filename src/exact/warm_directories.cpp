#include "exact/warm_directories.h"

#include <algorithm>

namespace quarry::exact {

void warm_directories::keep_root(root_directory read) {
    if (read.directory->attributes.members().size() <= most_attributes) {
        m_root = std::move(read);
    }
}

const warm_directories::step* warm_directories::find(reference from, const std::u16string& name) {
    const auto found = m_kept.find({from.entry, from.sequence, name});
    if (found == m_kept.end()) {
        return nullptr;
    }
    found->second.last_use = ++m_uses;
    return &found->second.taken;
}

void warm_directories::keep(reference from, const std::u16string& name, step taken) {
    if (taken.directory->attributes.members().size() > most_attributes) {
        return;
    }
    if (m_kept.size() == most_kept) {
        m_kept.erase(std::min_element(m_kept.begin(), m_kept.end(), [](const auto& a, const auto& b) {
            return a.second.last_use < b.second.last_use;
        }));
    }
    m_kept.insert_or_assign({from.entry, from.sequence, name}, kept_step{std::move(taken), ++m_uses});
}

}  // namespace quarry::exact
