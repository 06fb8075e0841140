// A lens that gives the answer a scenario wants.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace scripted {

/// While it lives, the busctl that the shell finds first prints the given text.
class Lens {
 public:
  explicit Lens(const std::string& answer) {
    if (const char* path = std::getenv("PATH")) m_path = path;
    std::string name = (std::filesystem::temp_directory_path() / "velmor-lens-XXXXXX").string();
    m_folder = mkdtemp(name.data());
    std::ofstream(m_folder / "answer") << answer;
    const std::filesystem::path program = m_folder / "busctl";
    std::ofstream(program) << "#!/bin/sh\ncat " << m_folder / "answer"
                           << "\n";
    std::filesystem::permissions(program, std::filesystem::perms::owner_all);
    setenv("PATH", (m_folder.string() + ":" + m_path).c_str(), 1);
  }
  ~Lens() {
    setenv("PATH", m_path.c_str(), 1);
    std::filesystem::remove_all(m_folder);
  }
  Lens(const Lens&) = delete;
  Lens& operator=(const Lens&) = delete;

 private:
  std::string m_path;
  std::filesystem::path m_folder;
};

}  // namespace scripted
