// velmor_simulator: records scenarios and writes training pictures.
#include <charconv>
#include <cstring>
#include <exception>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "simulator/dataset.h"
#include "simulator/scenario.h"

namespace {

constexpr const char* kUsage =
    "usage: velmor_simulator record SCRIPT.json FOLDER\n"
    "       velmor_simulator dataset FOLDER COUNT SEED [--held-out] [--whole | --detector]\n";

unsigned number(const std::string& text) {
  unsigned value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size()) throw std::runtime_error(text + " is not a number");
  return value;
}

void recordScript(const std::vector<std::string>& words) {
  const std::filesystem::path script(words.at(1));
  simulator::record(simulator::readScenario(script), words.at(2), script.stem().string());
}

void makeDataset(const std::vector<std::string>& words) {
  simulator::DatasetRequest request;
  request.folder = words.at(1);
  request.count = number(words.at(2));
  request.seed = number(words.at(3));
  for (std::size_t i = 4; i < words.size(); ++i) {
    if (words[i] == "--held-out") {
      request.heldOut = true;
    } else if (words[i] == "--whole") {
      request.kind = simulator::DatasetKind::kWhole;
    } else if (words[i] == "--detector") {
      request.kind = simulator::DatasetKind::kDetector;
    } else {
      throw std::runtime_error(words[i] + " is not an option");
    }
  }
  simulator::writeDataset(request);
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> words(argv + 1, argv + argc);
  try {
    if (words.size() == 3 && words[0] == "record") {
      recordScript(words);
    } else if (words.size() >= 4 && words[0] == "dataset") {
      makeDataset(words);
    } else {
      std::cerr << kUsage;
      return 2;
    }
  } catch (const std::exception& error) {
    std::cerr << "velmor_simulator: " << error.what() << '\n';
    return 1;
  }
  return 0;
}
