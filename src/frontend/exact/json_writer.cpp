#include "frontend/exact/json_writer.h"

#include <nlohmann/json.hpp>

namespace quarry::exact {

void json_writer::begin(char bracket) {
    put_comma();
    m_text += bracket;
    m_is_first = true;
}

void json_writer::begin(char bracket, std::string_view name) {
    put_name(name);
    m_text += bracket;
    m_is_first = true;
}

void json_writer::end(char bracket) {
    m_text += bracket;
    m_is_first = false;
}

void json_writer::put_comma() {
    if (!m_is_first) {
        m_text += ',';
    }
    m_is_first = false;
}

void json_writer::put_name(std::string_view name) {
    put_comma();
    put_text(name);
    m_text += ':';
}

void json_writer::put_text(std::string_view text) {
    using json = nlohmann::json;
    m_text += json(text).dump(-1, ' ', false, json::error_handler_t::replace);
}

}  // namespace quarry::exact
