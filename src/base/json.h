// The one place that includes the JSON library. It makes the library behave as the product's log lines and callers
// expect: a document that does not parse throws std::invalid_argument, a value of the wrong type std::domain_error,
// both with the bare message; a number too large for a double reads as null; bytes of texts are written as they are.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <string_view>

namespace zorvalis::json_detail {

// Thrown by the library's parser at a number that is too large for a double.
struct HugeNumber : std::invalid_argument {
    using std::invalid_argument::invalid_argument;
};

// What the library calls in place of `throw`. Its own errors have an id and begin with "[json.exception.NAME.ID] ",
// which is cut off.
template <class Exception>
[[noreturn]] void Raise(const Exception& exception) {
    if constexpr (requires { exception.id; }) {
        const std::string_view message = exception.what();
        const std::size_t end = message.find("] ");
        constexpr std::size_t kLongest = 500;  // the library quotes the whole text that it read last
        const std::string text(message.substr(end == std::string_view::npos ? 0 : end + 2, kLongest));
        if (exception.id == 406) {
            throw HugeNumber(text);
        }
        if (exception.id / 100 == 1) {  // from the parser; 4 stands for keys and indices that are missing
            throw std::invalid_argument(text);
        }
        if (exception.id / 100 == 4) {
            throw std::out_of_range(text);
        }
        throw std::domain_error(text);
    } else {
        throw exception;
    }
}

}  // namespace zorvalis::json_detail

#define JSON_THROW_USER(exception) ::zorvalis::json_detail::Raise(exception)
#define JSON_TRY_USER try
#define JSON_CATCH_USER(exception) catch (exception)
#define JSON_INTERNAL_CATCH_USER(exception) catch (exception)
#include <nlohmann/json.hpp>

namespace zorvalis {

using Json = nlohmann::json;

// Copying and writing a tree recurse, so a document nested deeper than this does not parse.
constexpr int kDeepestJson = 512;

namespace json_detail {

inline bool IsNumber(std::string_view text) {
    std::size_t at = 0;
    const auto take = [&](std::string_view any) {
        const bool taken = at < text.size() && any.find(text[at]) != std::string_view::npos;
        at += taken ? 1 : 0;
        return taken;
    };
    const auto digits = [&] {
        const std::size_t first = at;
        at = std::min(text.find_first_not_of("0123456789", at), text.size());
        return at != first;
    };
    take("-");
    return (take("0") || digits()) && (!take(".") || digits()) && (!take("eE") || (take("+-"), digits())) &&
           at == text.size();
}

// The position behind the text (in quotes) that begins at `at`; beyond text.size() when it has no closing quote.
inline std::size_t EndOfText(std::string_view text, std::size_t at) {
    for (++at; at < text.size() && text[at] != '"'; ++at) {
        at += text[at] == '\\' ? 1 : 0;
    }
    return at + 1;
}

// Throws for a document that is nested too deeply. The parser could be asked to watch the depth itself, but then needs
// a time that grows with the square of a list's length.
inline void RefuseDeep(std::string_view text) {
    int depth = 0;
    for (std::size_t at = 0; at < text.size();) {
        const char c = text[at];
        depth += c == '[' || c == '{' ? 1 : c == ']' || c == '}' ? -1 : 0;
        if (depth > kDeepestJson) {
            throw std::invalid_argument("parse error: nested too deeply");
        }
        at = c == '"' ? EndOfText(text, at) : at + 1;
    }
}

// The document with `null`, and blanks up to the old length, in the place of each number too large for a double.
inline std::string WithoutHugeNumbers(std::string_view text) {
    constexpr std::string_view kNull = "null";
    std::string result(text);
    for (std::size_t at = 0; at < result.size();) {
        if (result[at] == '"') {
            at = EndOfText(result, at);
            continue;
        }
        const std::size_t length = std::min(result.find_first_not_of("+-.0123456789Ee", at), result.size()) - at;
        if (length > kNull.size() && IsNumber({&result[at], length}) && std::isinf(std::strtod(&result[at], nullptr))) {
            std::fill_n(std::copy(kNull.begin(), kNull.end(), &result[at]), length - kNull.size(), ' ');
        }
        at += std::max<std::size_t>(length, 1);
    }
    return result;
}

}  // namespace json_detail

// Throws std::invalid_argument for a text that is not JSON or is nested more than kDeepestJson deep.
inline Json ParseJson(std::string_view text) {
    json_detail::RefuseDeep(text);
    try {
        return Json::parse(text);
    } catch (const json_detail::HugeNumber&) {
        return Json::parse(json_detail::WithoutHugeNumbers(text));
    }
}

// Throws std::domain_error for any other type; a boolean is not a number.
inline void RequireNumber(const Json& value) {
    if (!value.is_number()) {
        throw std::domain_error(std::string("type must be number, but is ") + value.type_name());
    }
}

// The lower 32 bits of a whole number. A number written with a fraction or exponent loses its fraction; when it does
// not fit into 32 bits, it gives INT32_MIN. Throws std::domain_error for any other type.
inline std::int32_t JsonInteger(const Json& value) {
    RequireNumber(value);
    if (value.is_number_float()) {
        const double number = value.get<double>();
        return number > -2147483649.0 && number < 2147483648.0 ? static_cast<std::int32_t>(number) : INT32_MIN;
    }
    return static_cast<std::int32_t>(value.get<std::uint64_t>());
}

namespace json_detail {

inline std::string Widen(const std::string& bytes) {
    std::string text;
    text.reserve(bytes.size());
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x80) {
            text += c;
        } else {
            text += static_cast<char>(0xC0 | byte >> 6);
            text += static_cast<char>(0x80 | (byte & 0x3F));
        }
    }
    return text;
}

inline std::string Narrow(const std::string& text) {
    std::string bytes;
    bytes.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        bytes += byte < 0x80 ? text[i] : static_cast<char>((byte << 6 | (text[++i] & 0x3F)) & 0xFF);
    }
    return bytes;
}

inline Json WidenAll(const Json& value) {
    if (value.is_string()) {
        return Widen(value.get_ref<const std::string&>());
    }
    if (value.is_array()) {
        Json result = Json::array();
        for (const Json& element : value) {
            result.push_back(WidenAll(element));
        }
        return result;
    }
    if (value.is_object()) {
        Json result = Json::object();
        for (const auto& [key, element] : value.items()) {
            result[Widen(key)] = WidenAll(element);
        }
        return result;
    }
    return value;
}

}  // namespace json_detail

// The compact form, keys in ascending byte order. The library refuses to write texts that are not UTF-8. Their bytes
// are written as they are: each byte is made a character first (WidenAll) and a byte again afterwards (Narrow).
inline std::string DumpJson(const Json& value) {
    try {
        return value.dump();
    } catch (const std::domain_error&) {
        return json_detail::Narrow(json_detail::WidenAll(value).dump());
    }
}

}  // namespace zorvalis
