// velmor_simulator: records scenarios.
#include <exception>
#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

#include "simulator/stories/scenario.h"

namespace {

constexpr const char* kUsage = "usage: velmor_simulator record SCRIPT.json FOLDER\n";

void recordScript(const std::filesystem::path& script, const std::filesystem::path& folder) {
  simulator::record(simulator::readScenario(script), folder, script.stem().string());
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> words(argv + 1, argv + argc);
  try {
    if (words.size() != 3 || words[0] != "record") {
      std::cerr << kUsage;
      return 2;
    }
    recordScript(words[1], words[2]);
  } catch (const std::exception& error) {
    std::cerr << "velmor_simulator: " << error.what() << '\n';
    return 1;
  }
  return 0;
}
