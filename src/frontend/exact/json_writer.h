// JSON text, written from its front to its end.
//
// Nothing is kept in memory but the text itself. Where memory runs out half way the exception finds no tree
// of values that has to be taken down, which would want memory, too.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>

namespace quarry::exact {

class json_writer {
  public:
    // An object or an array: the whole, an element of an array, or with a name a member of an object. Each is
    // ended by its end().
    void begin_object() { begin('{'); }
    void begin_object(std::string_view name) { begin('{', name); }
    void begin_array(std::string_view name) { begin('[', name); }
    void end_object() { end('}'); }
    void end_array() { end(']'); }

    // A value: text, which should be UTF-8 and has U+FFFD where it is not, a number, true or false, null. An
    // optional that is empty is null.
    template <typename Value>
    void member(std::string_view name, const Value& value) {
        put_name(name);
        put(value);
    }
    template <typename Value>
    void element(const Value& value) {
        put_comma();
        put(value);
    }

    [[nodiscard]] const std::string& text() const { return m_text; }

  private:
    void begin(char bracket);
    void begin(char bracket, std::string_view name);
    void end(char bracket);
    void put_comma();
    void put_name(std::string_view name);
    void put_text(std::string_view text);

    template <typename Value>
    void put(const Value& value) {
        if constexpr (std::is_same_v<Value, bool>) {
            m_text += value ? "true" : "false";
        } else if constexpr (std::is_integral_v<Value>) {
            m_text += std::to_string(value);
        } else if constexpr (std::is_same_v<Value, std::nullptr_t>) {
            m_text += "null";
        } else {
            put_text(value);
        }
    }
    template <typename Value>
    void put(const std::optional<Value>& value) {
        if (value) {
            put(*value);
        } else {
            put(nullptr);
        }
    }

    std::string m_text;
    bool m_is_first = true;  // of its object or array
};

}  // namespace quarry::exact
