// What the users of the inference service share: its error, and aids to look at a model by hand.
#pragma once

#include <larod.h>

#include <cstddef>
#include <cstdint>
#include <string>

/// Owns the error of one call to the inference service; a fresh one for each call.
class LarodError {
 public:
  LarodError() = default;
  ~LarodError() { larodClearError(&m_error); }
  LarodError(const LarodError&) = delete;
  LarodError& operator=(const LarodError&) = delete;

  /// Where a call puts its error.
  larodError** out() { return &m_error; }
  /// The service's words; never null.
  const char* message() const { return m_error != nullptr && m_error->msg != nullptr ? m_error->msg : "unknown error"; }
  larodErrorCode code() const { return m_error != nullptr ? m_error->code : LAROD_ERROR_NONE; }

 private:
  larodError* m_error = nullptr;
};

/// Destroys an array of tensors, if there is one, and clears its pointer.
void destroyTensors(larodConnection* connection, larodTensor**& tensors, std::size_t count);

/// Writes a tensor's properties to the system log, each line tagged. What cannot be read shows as 0 or empty.
void logTensor(const larodTensor* tensor, const std::string& tag);

/// Writes a packed RGB picture (sizes in pixels) as a plain-text greymap of the mean of its channels. False after a log
/// line when the file cannot be written.
bool writeGreymap(const std::string& path, const uint8_t* rgb, int width, int height);
