// velmor_simulator: records scenarios, shows their moments, and tells what rooms hold.
#include <charconv>
#include <cmath>
#include <exception>
#include <filesystem>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "simulator/stories/scenario.h"

namespace {

constexpr const char* kUsage =
    "usage: velmor_simulator record [--no-video|--no-pictures] SCRIPT.json FOLDER\n"
    "       velmor_simulator picture SCRIPT.json SECONDS FILE.png\n"
    "       velmor_simulator room NUMBER\n";

/// The whole word as a number from 0 to `most`. Throws std::runtime_error.
float numberOf(const std::string& word, float most) {
  float number = -1;
  const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), number);
  if (error != std::errc() || end != word.data() + word.size() || !(number >= 0 && number <= most)) {
    throw std::runtime_error("cannot be " + word + "; allowed is a number from 0 to " +
                             std::to_string(std::lround(most)));
  }
  return number;
}

/// False for a wrong call.
bool run(std::vector<std::string> words) {
  using simulator::Extent;
  Extent extent = std::erase(words, "--no-video") == 0 ? Extent::kVideo : Extent::kTruth;
  if (std::erase(words, "--no-pictures") > 0) extent = Extent::kTold;
  if (words.empty() || (extent != Extent::kVideo && words[0] != "record")) return false;
  if (words[0] == "record" && words.size() == 3) {
    const std::filesystem::path script = words[1];
    simulator::record(simulator::readScenario(script), words[2], script.stem().string(), extent);
  } else if (words[0] == "picture" && words.size() == 4) {
    const simulator::Scenario scenario = simulator::readScenario(words[1]);
    simulator::writePicture(scenario, numberOf(words[2], scenario.seconds), words[3]);
  } else if (words[0] == "room" && words.size() == 2) {
    std::cout << simulator::describe(
        simulator::makeRoom(static_cast<unsigned>(numberOf(words[1], simulator::kAllRooms - 1))));
  } else {
    return false;
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    if (!run({argv + 1, argv + argc})) {
      std::cerr << kUsage;
      return 2;
    }
  } catch (const std::exception& error) {
    std::cerr << "velmor_simulator: " << error.what() << '\n';
    return 1;
  }
  return 0;
}
