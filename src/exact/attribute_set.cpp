#include "exact/attribute_set.h"

#include "exact/name_text.h"

#include <algorithm>
#include <map>
#include <set>

namespace quarry::exact {

namespace {

// Memory for the records of one list, which can name 8,192 of up to 64 KiB each. More than this fails with
// memory.
constexpr std::uint64_t most_bytes_of_extensions = 0x4000000;

// The records that an attribute list names, announced ahead of their reads. One that is alone is not: it is
// read at once.
class record_announcer {
  public:
    record_announcer(const mft& table, const std::vector<list_item>& items, std::uint64_t base)
        : m_table(&table) {
        std::set<std::uint64_t> met{base};
        for (const list_item& each : items) {
            if (met.insert(each.holder.entry).second) {
                m_entries.push_back(each.holder.entry);
            }
        }
    }
    // The records are read in their order.
    void reading(std::uint64_t entry) {
        while (m_at < m_entries.size() && m_entries[m_at++] != entry) {
        }
        for (m_next = std::max(m_next, m_at); m_next < std::min(m_entries.size(), m_at + most_announced);
             ++m_next) {
            m_table->announce(m_entries[m_next]);
        }
    }

  private:
    static constexpr std::size_t most_announced = 64;

    const mft* m_table;
    std::vector<std::uint64_t> m_entries;
    std::size_t m_at = 0;    // after the one that is read
    std::size_t m_next = 0;  // the first that is not announced
};

}  // namespace

result<attribute_set> attribute_set::of(const mft& table, record base, notices& told) {
    attribute_set set;
    set.m_records.push_back(std::make_unique<record>(std::move(base)));
    result<const attribute*> list = find_attribute_list(set.base());
    if (!list) {
        return passed_on(list);
    }
    if (*list != nullptr) {
        if (result<void> taken = set.take_listed(table, **list, told); !taken) {
            return passed_on(taken);
        }
        return set;
    }
    for (const attribute& each : set.base().attributes()) {
        set.m_members.push_back({each.type(), name_of(each), {each, &set.base()}});
    }
    return set;
}

result<void> attribute_set::take_listed(const mft& table, const attribute& list, notices& told) {
    const std::string where = base().place().where;
    result<std::vector<list_item>> items = read_attribute_list(table.volume(), base(), list);
    if (!items) {
        return passed_on(items);
    }
    // The records of a file in many fragments lie wherever there was room.
    record_announcer announcer(table, *items, base().entry());
    std::map<std::uint64_t, const record*> holders{{base().entry(), &base()}};
    std::set<const std::uint8_t*> named;
    for (list_item& item : *items) {
        const record*& holder = holders[item.holder.entry];
        if (holder == nullptr) {
            const std::uint64_t held = m_records.size() * std::uint64_t{table.volume().shape().record_size};
            if (held > most_bytes_of_extensions) {
                return fail(failure_code::memory, where,
                            "needs " + std::to_string(held) +
                                " bytes for the records of its attribute list, " +
                                std::to_string(most_bytes_of_extensions) + " are possible");
            }
            announcer.reading(item.holder.entry);
            result<record> extension = table.read_extension(item.holder, base(), told);
            if (!extension) {
                return passed_on(extension);
            }
            holder = m_records.emplace_back(std::make_unique<record>(std::move(*extension))).get();
        } else if (result<void> listed = mft::expect_listed(*holder, item.holder, base(), told); !listed) {
            return listed;
        }
        result<std::size_t> index = attribute_named_by(item, *holder, where);
        if (!index) {
            return passed_on(index);
        }
        const attribute& found = holder->attributes()[*index];
        if (!named.insert(found.bytes().data()).second) {
            return broken_item(where, item, "names an attribute a second time");
        }
        m_members.push_back({item.type, std::move(item.name), {found, holder}});
    }
    warn_of_unlisted(named, told);
    return {};
}

void attribute_set::warn_of_unlisted(const std::set<const std::uint8_t*>& named, notices& told) const {
    for (const std::unique_ptr<record>& each : m_records) {
        for (const attribute& found : each->attributes()) {
            if (found.type() != attr_attribute_list && !named.contains(found.bytes().data())) {
                told.warn("unlisted", where::stream(each->entry(), found.type(), shown_name(name_of(found))),
                          "is not in the attribute list of record " + std::to_string(base().entry()));
            }
        }
    }
}

std::vector<const attribute_set::member*> attribute_set::of_type(std::uint32_t type) const {
    std::vector<const member*> found;
    for (const member& each : m_members) {
        if (each.type == type) {
            found.push_back(&each);
        }
    }
    return found;
}

std::vector<piece> attribute_set::pieces(std::uint32_t type, std::u16string_view name) const {
    std::vector<piece> found;
    for (const member& each : m_members) {
        if (each.type == type && each.name == name) {
            found.push_back(each.stored);
        }
    }
    return found;
}

std::vector<std::u16string> attribute_set::names(std::uint32_t type) const {
    std::vector<std::u16string> found;
    for (const member* each : of_type(type)) {
        if (std::find(found.begin(), found.end(), each->name) == found.end()) {
            found.push_back(each->name);
        }
    }
    return found;
}

result<std::optional<byte_view>> attribute_set::only_value(std::uint32_t type) const {
    const std::vector<const member*> all = of_type(type);
    if (all.empty()) {
        return std::nullopt;
    }
    const member& first = *all.front();
    if (all.size() > 1 || first.stored.bytes.non_resident() || !first.name.empty()) {
        return fail(failure_code::layout, base().place().where,
                    "has not one resident, unnamed " + type_name(type), first.stored.source_byte());
    }
    return first.stored.bytes.value();
}

result<stored_stream> attribute_set::stored(const geometry& shape, std::uint32_t type,
                                            std::u16string_view name) const {
    std::vector<piece> found = pieces(type, name);
    if (found.empty()) {
        return no_stream(type, name);
    }
    return stored_stream::join(shape, std::move(found),
                               where::stream(base().entry(), type, shown_name(name)));
}

tl::unexpected<failure> attribute_set::no_stream(std::uint32_t type, std::u16string_view name) const {
    std::string list;
    for (const std::u16string& each : names(type)) {
        list += (list.empty() ? "" : ", ") + ("\"" + shown_name(each) + "\"");
    }
    return fail(failure_code::no_stream, base().place().where,
                "no stream \"" + shown_name(name) + "\"" +
                    (type == attr_data ? "" : " of type " + type_name(type)) +
                    "; there are: " + (list.empty() ? "none" : list));
}

}  // namespace quarry::exact
