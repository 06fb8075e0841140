// A camera is tried by a process of its own: whatever the camera sends, the program goes on watching.
#pragma once

#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

namespace workstation {

class CheckProcess {
 public:
  /// What velmor_camera has written; empty when it could not be started or was killed.
  struct Answer {
    std::string document;  ///< JSON
    std::string picture;   ///< JPEG; empty for none
  };

  /// Starts it with what it is asked on its standard input, where no list of processes shows it; kills it when the time
  /// is over.
  CheckProcess(const std::filesystem::path& program, const std::string& question, std::chrono::seconds patience);
  /// Kills it.
  ~CheckProcess();
  CheckProcess(const CheckProcess&) = delete;
  CheckProcess& operator=(const CheckProcess&) = delete;

  /// Nothing as long as it is at work. Once.
  std::optional<Answer> takeAnswer();

 private:
  class Work;
  std::unique_ptr<Work> m_work;
};

}  // namespace workstation
