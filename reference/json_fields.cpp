#include "reference/json_fields.h"

#include <cmath>
#include <stdexcept>

double numberFrom(const nlohmann::json& value, const std::string& what, double low, double high) {
  const double number = value.is_number() ? value.get<double>() : std::nan("");
  if (!(number >= low && number <= high)) {
    throw std::runtime_error(what + " must be a number from " + std::to_string(static_cast<long>(low)) + " to " +
                             std::to_string(static_cast<long>(high)));
  }
  return number;
}

const nlohmann::json& listOf(const nlohmann::json& object, const char* key, const char* where) {
  const auto entry = object.find(key);
  if (entry == object.end() || !entry->is_array()) {
    throw std::runtime_error(std::string(where) + "\"" + key + "\" must be a list");
  }
  return *entry;
}
