#pragma once

#include <algorithm>
#include <cstdint>
#include <string>
#include <utility>
#include <variant>
#include <vector>

struct Entry;
struct Value;
using Dictionary = std::vector<Entry>; ///< in the order given, each key once
using List = std::vector<Value>;

struct Data {
    std::string bytes;
};

/// A moment as text, for example 2024-05-01T12:00:00Z.
struct Date {
    std::string text;
};

/// What an entry of a message may hold. Texts are UTF-8 without a zero byte.
struct Value {
    std::variant<bool, std::int64_t, std::uint64_t, double, std::string, Data, Date, List, Dictionary>
        content;
};

struct Entry {
    std::string key;
    Value value;
};

/// Replaces the value of that key, or appends the entry.
inline void setEntry(Dictionary &dictionary, std::string key, Value value) {
    const auto found = std::find_if(
        dictionary.begin(), dictionary.end(), [&key](const Entry &entry) { return entry.key == key; });
    if (found != dictionary.end())
        found->value = std::move(value);
    else
        dictionary.push_back({ std::move(key), std::move(value) });
}
