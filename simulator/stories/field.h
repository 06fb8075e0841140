// The values of a script, each with its place in it, so that every message can say where.
#pragma once

#include <algorithm>
#include <array>
#include <initializer_list>
#include <nlohmann/json.hpp>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace simulator {

/// A range as a message names it: "from 0.1 to 5".
inline std::string range(float low, float high) {
  std::ostringstream text;
  text << "from " << low << " to " << high;
  return text.str();
}

/// A value of the script together with where it stands, "people[0].keys[3].at", so that each message can say so.
class Field {
 public:
  Field(const std::string& file, std::string path, const nlohmann::json& value)
      : m_file(file), m_path(std::move(path)), m_value(value) {}

  [[noreturn]] void fail(const std::string& what) const {
    throw std::runtime_error(m_file + ": " + (m_path.empty() ? "" : m_path + ": ") + what);
  }

  /// The same of something else in the script.
  [[noreturn]] void failAt(const std::string& path, const std::string& what) const {
    Field(m_file, path, m_value).fail(what);
  }

  /// The value must be an object with no other keys than these.
  void expectKeys(std::initializer_list<std::string_view> keys) const {
    if (!m_value.is_object()) refuse("an object");
    for (const auto& [key, value] : m_value.items()) {
      if (std::find(keys.begin(), keys.end(), key) == keys.end()) {
        Field(m_file, join(key), value).fail("is not known here; allowed are " + listed(keys));
      }
    }
  }

  bool has(const char* key) const { return m_value.contains(key); }

  Field operator[](const char* key) const {
    const auto found = m_value.find(key);
    if (found == m_value.end()) Field(m_file, join(key), m_value).fail("is missing");
    return {m_file, join(key), *found};
  }

  float number(float low, float high) const {
    if (!isNumber(m_value, low, high)) refuse("a number " + range(low, high));
    return m_value.get<float>();
  }

  unsigned whole(unsigned low, unsigned high) const {
    if (!m_value.is_number_integer() || m_value < low || m_value > high) {
      refuse("a whole number " + range(static_cast<float>(low), static_cast<float>(high)));
    }
    return m_value.get<unsigned>();
  }

  template <std::size_t count>
  std::array<float, count> numbers(float low, float high) const {
    const bool good = m_value.is_array() && m_value.size() == count &&
                      std::all_of(m_value.begin(), m_value.end(),
                                  [&](const nlohmann::json& item) { return isNumber(item, low, high); });
    if (!good) refuse("a list of " + std::to_string(count) + " numbers " + range(low, high));
    return m_value.get<std::array<float, count>>();
  }

  bool yesOrNo() const {
    if (!m_value.is_boolean()) refuse("true or false");
    return m_value.get<bool>();
  }

  /// One of these words, by its place among them.
  std::size_t oneOf(std::initializer_list<std::string_view> words) const {
    const auto* const found = std::find(words.begin(), words.end(), m_value.is_string() ? text() : "");
    if (found == words.end()) refuse("one of " + listed(words));
    return static_cast<std::size_t>(found - words.begin());
  }

  /// No other keys than these, `why` saying for whom.
  void expectOnly(std::initializer_list<std::string_view> keys, const std::string& why) const {
    for (const auto& [key, value] : m_value.items()) {
      if (std::find(keys.begin(), keys.end(), key) == keys.end()) {
        Field(m_file, join(key), value).fail("is not for " + why + "; allowed are " + listed(keys));
      }
    }
  }

  std::string text() const {
    if (!m_value.is_string() || m_value.get_ref<const std::string&>().empty()) refuse("a text that is not empty");
    return m_value.get<std::string>();
  }

  /// A text as one line; "" for anything else.
  std::string line() const {
    std::string text = m_value.is_string() ? m_value.get<std::string>() : "";
    std::replace_if(
        text.begin(), text.end(), [](unsigned char c) { return c < ' '; }, ' ');
    return text;
  }

  std::vector<Field> list(bool mayBeEmpty = false) const {
    if (!m_value.is_array() || (m_value.empty() && !mayBeEmpty)) {
      refuse(mayBeEmpty ? "a list" : "a list that is not empty");
    }
    std::vector<Field> fields;
    fields.reserve(m_value.size());
    for (std::size_t i = 0; i < m_value.size(); ++i) {
      fields.emplace_back(m_file, m_path + "[" + std::to_string(i) + "]", m_value[i]);
    }
    return fields;
  }

  [[noreturn]] void refuse(const std::string& allowed) const {
    constexpr std::size_t kShown = 40;
    std::string shown = m_value.dump(-1, ' ', true, nlohmann::json::error_handler_t::replace);
    if (shown.size() > kShown) shown = shown.substr(0, kShown) + "...";
    fail("cannot be " + shown + "; allowed is " + allowed);
  }

 private:
  static std::string listed(std::initializer_list<std::string_view> words) {
    std::string text;
    for (const std::string_view word : words) text.append(text.empty() ? "" : ", ").append(word);
    return text;
  }

  static bool isNumber(const nlohmann::json& value, float low, float high) {
    return value.is_number() && value.get<double>() >= low && value.get<double>() <= high;
  }

  std::string join(const std::string& key) const { return m_path.empty() ? key : m_path + "." + key; }

  const std::string& m_file;
  std::string m_path;
  const nlohmann::json& m_value;
};

}  // namespace simulator
