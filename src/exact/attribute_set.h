// All attributes of one file, from its base record and, through its attribute list, from its extensions.
//
// Without a list they are those of the base record. With one, only the list says which there are:
//
//     base record 40            list                         record 61, base 40
//     | $STANDARD_INFORMATION | $STANDARD_INFORMATION in 40   | $DATA VCN 100 id 0 |
//     | $ATTRIBUTE_LIST ------> $DATA VCN 0   id 3 in 40      | $DATA VCN 250 id 1 |
//     | $DATA VCN 0    id 3   | $DATA VCN 100 id 0 in 61
//                               $DATA VCN 250 id 1 in 61
//
// Each item names exactly one attribute, none is named twice. Attributes that no item names were given up by
// the file system and are not part of the file.
#pragma once

#include "exact/attribute_list.h"
#include "exact/failure.h"
#include "exact/mft.h"
#include "exact/record.h"
#include "exact/stored_stream.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace quarry::exact {

class attribute_set {
  public:
    // Reads the list and the records that it names. Warns (unlisted) of attributes that it does not name.
    // Fails with list, with memory if its records take more than 64 MiB, as the records of the list do, and
    // as the list's own stream does.
    [[nodiscard]] static result<attribute_set> of(const mft& table, record base, notices& told);

    struct member {
        std::uint32_t type = 0;
        std::u16string name;
        piece stored;
    };

    [[nodiscard]] const record& base() const { return *m_records.front(); }
    // Records that it holds, the base among them.
    [[nodiscard]] std::size_t records() const { return m_records.size(); }
    // All attributes, in the order of the list or of the record; pieces of a stream are members of their own.
    // The list itself is none.
    [[nodiscard]] const std::vector<member>& members() const { return m_members; }
    // Those of one type, such as all $FILE_NAME.
    [[nodiscard]] std::vector<const member*> of_type(std::uint32_t type) const;
    // The pieces of the stream of this type and exactly this name; none if there is no such stream.
    [[nodiscard]] std::vector<piece> pieces(std::uint32_t type, std::u16string_view name) const;
    // The different names of one type, the unnamed one as an empty name, in the order of members().
    [[nodiscard]] std::vector<std::u16string> names(std::uint32_t type) const;
    // The value of the only attribute of a type, which must be resident and unnamed, such as
    // $STANDARD_INFORMATION; null if there is none. Fails with layout if there are several or it is not
    // resident.
    [[nodiscard]] result<std::optional<byte_view>> only_value(std::uint32_t type) const;
    // The stream of this type and exactly this name, joined. Fails with no-stream if there is none.
    [[nodiscard]] result<stored_stream> stored(const geometry& shape, std::uint32_t type,
                                               std::u16string_view name) const;

    // The failure for a stream that is not there, with the names that are.
    [[nodiscard]] tl::unexpected<failure> no_stream(std::uint32_t type, std::u16string_view name) const;

  private:
    attribute_set() = default;
    [[nodiscard]] result<void> take_listed(const mft& table, const attribute& list, notices& told);
    // `named`: where the attributes begin that the list names.
    void warn_of_unlisted(const std::set<const std::uint8_t*>& named, notices& told) const;

    // The base first. Records do not move, so that pieces may point at them.
    std::vector<std::unique_ptr<record>> m_records;
    std::vector<member> m_members;
};

}  // namespace quarry::exact
