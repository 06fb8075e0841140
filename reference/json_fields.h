// Members of JSON objects that somebody may have written by hand: what is wrong is said in words.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

/// A finite number from low to high; throws std::runtime_error that names `what`.
double numberFrom(const nlohmann::json& value, const std::string& what, double low, double high);

/// A member that must be there and be a list; throws std::runtime_error that names it, after `where`.
const nlohmann::json& listOf(const nlohmann::json& object, const char* key, const char* where);
