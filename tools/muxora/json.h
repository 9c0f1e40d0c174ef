// A small writer of JSON texts.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>
#include <type_traits>

namespace Orvane::Muxora::Tools {

inline std::string JsonText(std::string_view text) {
    std::string out = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\') {
            out += '\\';
            out += c;
        } else if (static_cast<unsigned char>(c) < 0x20) {
            char escape[8];
            std::snprintf(escape, sizeof escape, "\\u%04x", static_cast<unsigned>(c));
            out += escape;
        } else {
            out += c;
        }
    }
    return out + '"';
}

// Composes one object or list. Add() with a name inside an object, without one inside a list.
class JsonValue {
  public:
    static JsonValue Object() { return JsonValue('{', '}'); }
    static JsonValue List() { return JsonValue('[', ']'); }

    JsonValue& Add(std::string_view name, const JsonValue& value) { return Put(name, value.Text()); }
    JsonValue& Add(std::string_view name, std::string_view value) { return Put(name, JsonText(value)); }
    JsonValue& Add(std::string_view name, const char* value) { return Put(name, JsonText(value)); }
    JsonValue& Add(std::string_view name, bool value) { return Put(name, value ? "true" : "false"); }
    template <typename Number, typename = std::enable_if_t<std::is_arithmetic_v<Number>>>
    JsonValue& Add(std::string_view name, Number value) {
        if constexpr (std::is_floating_point_v<Number>) {
            char text[40];
            std::snprintf(text, sizeof text, "%.6f", static_cast<double>(value));
            return Put(name, text);
        } else {
            return Put(name, std::to_string(value));
        }
    }
    template <typename Value>
    JsonValue& Add(const Value& value) {
        return Add(std::string_view{}, value);
    }

    std::string Text() const { return open_ + body_ + close_; }

  private:
    JsonValue(char open, char close) : open_(1, open), close_(1, close) {}

    JsonValue& Put(std::string_view name, const std::string& text) {
        if (!body_.empty()) body_ += ", ";
        if (!name.empty()) body_ += JsonText(name) + ": ";
        body_ += text;
        return *this;
    }

    std::string open_;
    std::string close_;
    std::string body_;
};

}  // namespace Orvane::Muxora::Tools
