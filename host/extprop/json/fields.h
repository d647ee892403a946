// Converts typed documents to JSON and back, by the fields of their types. A type lists its fields
// in a function Visit(fields, value) in its namespace, which calls fields("name", value.member) for
// each. A type that cannot be written by its fields has a specialization of Json instead.

#pragma once

#include <map>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

namespace extprop {

using nlohmann::json;

template <typename T>
struct Json;

// Returns the value as JSON: an enum as its number, an optional without a value as null.
template <typename T>
json Write(const T& value) {
    return Json<T>::Write(value);
}

// Reads the document into `*value`, which must be newly made. Moves strings out of the document,
// which may be as large as a device's files. Ignores fields that the type does not list. Throws
// json::exception if a field is missing or cannot be converted, std::out_of_range for a number that
// is not whole where one is wanted; checks neither that a list is an array nor that a number is one
// of an enum's or fits its type.
template <typename T>
void Read(json& document, T* value) {
    Json<T>::Read(document, value);
}

// Returns the value that the document holds. Throws as Read() does.
template <typename T>
T FromJson(json document) {
    T value;
    Read(document, &value);
    return value;
}

class Writer {
  public:
    template <typename T>
    Writer& operator()(const char* name, const T& value) {
        document[name] = Write(value);
        return *this;
    }
    json document = json::object();
};

class Reader {
  public:
    explicit Reader(json& document) : document_(document) {}
    template <typename T>
    Reader& operator()(const char* name, T& value) {
        Read(document_.at(name), &value);
        return *this;
    }

  private:
    json& document_;
};

template <typename T>
struct IsVector : std::false_type {};
template <typename T>
struct IsVector<std::vector<T>> : std::true_type {};
template <typename T>
struct IsSet : std::false_type {};
template <typename T>
struct IsSet<std::set<T>> : std::true_type {};
template <typename T>
struct IsOptional : std::false_type {};
template <typename T>
struct IsOptional<std::optional<T>> : std::true_type {};

using TextMap = std::map<std::string, std::string>;

// Types that JSON has itself.
template <typename T>
constexpr bool kIsPlain =
        std::is_arithmetic_v<T> || std::is_same_v<T, std::string> || std::is_same_v<T, json> ||
        std::is_same_v<T, TextMap> || std::is_same_v<T, std::set<std::string>> ||
        std::is_same_v<T, std::map<std::string, std::set<std::string>>> ||
        std::is_same_v<T, std::pair<std::string, std::string>>;

template <typename T>
struct Json {
    static json Write(const T& value) {
        if constexpr (kIsPlain<T>) {
            return value;
        } else if constexpr (std::is_enum_v<T>) {
            return static_cast<int>(value);
        } else if constexpr (IsOptional<T>::value) {
            return value ? extprop::Write(*value) : json();
        } else if constexpr (IsVector<T>::value || IsSet<T>::value) {
            json array = json::array();
            array.get_ref<json::array_t&>().reserve(value.size());
            for (const auto& element : value) array.push_back(extprop::Write(element));
            return array;
        } else {
            Writer writer;
            Visit(writer, const_cast<T&>(value));  // a writer only reads it
            return std::move(writer.document);
        }
    }

    static void Read(json& document, T* value) {
        if constexpr (std::is_same_v<T, std::string>) {
            *value = std::move(document.get_ref<std::string&>());
        } else if constexpr (std::is_same_v<T, TextMap>) {
            auto& object = document.get_ref<json::object_t&>();
            while (!object.empty()) {
                auto node = object.extract(object.begin());
                value->emplace_hint(value->end(), std::move(node.key()),
                                    std::move(node.mapped().template get_ref<std::string&>()));
            }
        } else if constexpr (kIsPlain<T>) {
            constexpr bool kIsWhole = std::is_integral_v<T> && !std::is_same_v<T, bool>;
            // A fraction or a number out of range may convert to anything.
            if (kIsWhole && !document.is_number_integer()) {
                throw std::out_of_range("not a whole number");
            }
            document.get_to(*value);
        } else if constexpr (std::is_enum_v<T>) {
            *value = static_cast<T>(document.get<int>());
        } else if constexpr (IsOptional<T>::value) {
            if (!document.is_null()) extprop::Read(document, &value->emplace());
        } else if constexpr (IsVector<T>::value) {
            value->reserve(document.size());
            for (json& element : document) extprop::Read(element, &value->emplace_back());
        } else if constexpr (IsSet<T>::value) {
            for (json& element : document) {
                typename T::value_type member;
                extprop::Read(element, &member);
                value->insert(value->end(), std::move(member));
            }
        } else {
            Reader reader(document);
            Visit(reader, *value);
        }
    }
};

}  // namespace extprop
