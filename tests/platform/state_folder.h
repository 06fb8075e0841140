// A place of its own for each test: an empty state directory, a camera's description and a manifest, all removed again.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <system_error>

/// Points the environment of the process at a fresh folder for as long as it lives.
class StateFolder {
 public:
  StateFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "velmor-test-XXXXXX").string();
    m_path = ::mkdtemp(name.data());
    ::setenv("VELMOR_STATE", m_path.c_str(), 1);
    ::setenv("VELMOR_CAMERA", (m_path / "camera.json").c_str(), 1);
    ::setenv("VELMOR_MANIFEST", (m_path / "manifest.json").c_str(), 1);
  }
  ~StateFolder() {
    std::error_code ignored;  // of something that is still written down on the side
    std::filesystem::remove_all(m_path, ignored);
  }
  StateFolder(const StateFolder&) = delete;
  StateFolder& operator=(const StateFolder&) = delete;

  std::filesystem::path operator/(const std::string& name) const { return m_path / name; }
  const std::filesystem::path& path() const { return m_path; }

  void write(const std::string& name, const std::string& content) const {
    std::ofstream(m_path / name, std::ios::binary) << content;
  }
  std::string read(const std::string& name) const {
    std::ifstream file(m_path / name, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }

 private:
  std::filesystem::path m_path;
};
