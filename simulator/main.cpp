// velmor_simulator: records scenarios.
#include <exception>
#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

#include "simulator/stories/scenario.h"

namespace {

constexpr const char* kUsage = "usage: velmor_simulator record [--no-video] SCRIPT.json FOLDER\n";

void recordScript(const std::filesystem::path& script, const std::filesystem::path& folder, bool withVideo) {
  simulator::record(simulator::readScenario(script), folder, script.stem().string(), withVideo);
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::string> words(argv + 1, argv + argc);
  const bool withVideo = std::erase(words, "--no-video") == 0;
  try {
    if (words.size() != 3 || words[0] != "record") {
      std::cerr << kUsage;
      return 2;
    }
    recordScript(words[1], words[2], withVideo);
  } catch (const std::exception& error) {
    std::cerr << "velmor_simulator: " << error.what() << '\n';
    return 1;
  }
  return 0;
}
