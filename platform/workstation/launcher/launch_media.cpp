#include "platform/workstation/launcher/launch_media.h"

#include <fcntl.h>
#include <gst/pbutils/pbutils.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <functional>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <system_error>

#include "platform/support/file_descriptor.h"
#include "platform/support/owners.h"
#include "platform/workstation/decoding/video_source.h"
#include "platform/workstation/system/durable_file.h"

namespace workstation {
namespace {

constexpr GstClockTime kPatience = 10 * GST_SECOND;

std::string uriOf(const std::string& source) {
  if (isUri(source)) {
    return source;
  }
  const GLibPtr<gchar> uri(gst_filename_to_uri(source.c_str(), nullptr));
  return uri ? uri.get() : "";
}

bool hasMovingPicture(GstDiscovererInfo* info) {
  GList* streams = gst_discoverer_info_get_video_streams(info);
  bool found = false;
  for (GList* stream = streams; stream != nullptr; stream = stream->next) {
    found = found || gst_discoverer_video_info_is_image(GST_DISCOVERER_VIDEO_INFO(stream->data)) == FALSE;
  }
  gst_discoverer_stream_info_list_free(streams);
  return found;
}

/// GStreamer's words in one line.
std::string reasonOf(const CaughtError& error) {
  std::string reason = error.text();
  std::replace(reason.begin(), reason.end(), '\n', ' ');
  return withoutSecrets(reason);
}

/// Whether there is anything here that speaks the URI's language.
bool isSpoken(const std::string& uri) {
  const GLibPtr<gchar> protocol(gst_uri_get_protocol(uri.c_str()));
  return protocol && gst_uri_protocol_is_supported(GST_URI_SRC, protocol.get()) != FALSE;
}

/// Plays a moment of the source.
std::string playProblem(const std::string& source) {
  const std::string name = withoutSecrets(source);
  CaughtError error;
  const GLibPtr<GstDiscoverer> discoverer(gst_discoverer_new(kPatience, error.out()));
  const GLibPtr<GstDiscovererInfo> info(
      discoverer ? gst_discoverer_discover_uri(discoverer.get(), uriOf(source).c_str(), error.out()) : nullptr);
  if (!info) {
    return name + ": cannot be played: " + reasonOf(error);
  }
  switch (gst_discoverer_info_get_result(info.get())) {
    case GST_DISCOVERER_OK:
      return hasMovingPicture(info.get()) ? "" : name + ": holds no video";
    case GST_DISCOVERER_MISSING_PLUGINS:
      return name + ": cannot be played: a decoder for it is not installed";
    case GST_DISCOVERER_TIMEOUT:
      return name + ": cannot be played: no picture within 10 seconds";
    default:
      return name + ": is not a video that can be played: " + reasonOf(error);
  }
}

bool hasOneThread() {
  std::error_code error;
  const std::filesystem::directory_iterator threads("/proc/self/task", error);
  return !error && std::distance(begin(threads), end(threads)) == 1;
}

/// The end of a process that tells its finding through the pipe.
[[noreturn]] void tellAndEnd(const std::function<std::string()>& finding, int pipe, pid_t asker) {
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (::getppid() != asker) _exit(1);
  try {
    const std::string text = finding();
    _exit(writeAll(pipe, text.data(), text.size()) ? 0 : 1);
  } catch (const std::exception&) {
    _exit(1);
  }
}

std::string textUntilEnd(const FileDescriptor& pipe) {
  std::string text;
  std::array<char, 512> part{};
  for (ssize_t count = 1; count > 0 || (count < 0 && errno == EINTR);) {
    count = ::read(pipe.get(), part.data(), part.size());
    if (count > 0) text.append(part.data(), static_cast<std::size_t>(count));
  }
  return text;
}

/// The finding of a process of its own, with whose end the decoders' libraries leave the memory again: whoever starts a
/// program stays as long as it runs. A process with threads, which may not go on as two, finds out itself.
std::string foundApart(const std::function<std::string()>& finding) {
  if (!hasOneThread()) return finding();
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) return finding();
  const FileDescriptor answer(ends[0]);
  FileDescriptor question(ends[1]);
  const pid_t asker = ::getpid();
  const pid_t child = ::fork();
  if (child == 0) tellAndEnd(finding, question.get(), asker);
  if (child < 0) return finding();
  question = FileDescriptor();
  std::string text = textUntilEnd(answer);
  int status = 0;
  while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  if (WIFSIGNALED(status)) {
    const int signal = WTERMSIG(status);
    throw std::runtime_error("what tries it was ended by signal " + std::to_string(signal) + " (" +
                             ::strsignal(signal) + ")");
  }
  if (status != 0) throw std::runtime_error("what tries it has failed");
  return text;
}

}  // namespace

std::string videoProblem(const std::string& source, bool replay) {
  const SourceKind kind = kindOf(source);
  if (kind == SourceKind::kFile) {
    if (const std::string problem = fileProblem(localPath(source)); !problem.empty()) {
      return source + ": " + problem;
    }
  }
  if (kind == SourceKind::kPipe && replay) {
    return source + ": is a FIFO; a replay needs a file";
  }
  const bool is_tried = replay || kind == SourceKind::kFile;
  if (!is_tried && kind != SourceKind::kStream) {
    return "";
  }
  try {
    return foundApart([&] {
      gst_init(nullptr, nullptr);
      if (kind == SourceKind::kStream && !isSpoken(source)) {
        return withoutSecrets(source) + ": this kind of address cannot be played; one that can is rtsp://HOST/PATH";
      }
      return is_tried ? playProblem(source) : "";
    });
  } catch (const std::runtime_error& error) {
    return withoutSecrets(source) + ": cannot be played: " + error.what();
  }
}

}  // namespace workstation
