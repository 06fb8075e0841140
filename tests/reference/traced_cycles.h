// What a trace decided.
#pragma once

#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

/// The cycles of a trace, without the status, which only the program itself has.
inline std::vector<nlohmann::json> cyclesOf(const std::string& trace) {
  std::vector<nlohmann::json> cycles;
  std::ifstream lines(trace);
  for (std::string line; std::getline(lines, line);) {
    nlohmann::json object = nlohmann::json::parse(line);
    if (object["kind"] != "cycle") continue;
    object.erase("status");
    cycles.push_back(std::move(object));
  }
  return cycles;
}
