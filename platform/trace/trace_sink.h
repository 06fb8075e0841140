// Where the lines of a trace go. The platform of the build has one or none; it includes nothing of ours.
#pragma once

#include <string>

/// Takes whole lines, each with its line feed, on the main loop's thread, and returns at once: a disk that hangs keeps
/// no alarm waiting. The first is the header.
class TraceSink {
 public:
  TraceSink() = default;
  virtual ~TraceSink() = default;
  TraceSink(const TraceSink&) = delete;
  TraceSink& operator=(const TraceSink&) = delete;

  virtual void take(const std::string& lines) = 0;
};

/// The platform's, for as long as the process lives; null when nobody wants a trace. Implemented by the platform.
TraceSink* openTraceSink();
