// A folder of a test's own, gone when the test is over.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

class ScratchDirectory {
 public:
  ScratchDirectory() : m_path(std::filesystem::temp_directory_path() / "velmor_test_XXXXXX") {
    if (mkdtemp(m_path.data()) == nullptr) std::abort();
  }
  ~ScratchDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
  }
  ScratchDirectory(const ScratchDirectory&) = delete;
  ScratchDirectory& operator=(const ScratchDirectory&) = delete;

  [[nodiscard]] std::string path(const std::string& name = "") const { return m_path + "/" + name; }
  std::string write(const std::string& name, const std::string& content) const {
    std::ofstream(path(name), std::ios::binary) << content;
    return path(name);
  }
  [[nodiscard]] std::string read(const std::string& name) const {
    std::ifstream file(path(name), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }

 private:
  std::string m_path;
};
