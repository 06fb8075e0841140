#include "platform/workstation/web/view_streams.h"

#include <algorithm>
#include <chrono>
#include <list>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

#include "platform/support/owners.h"
#include "platform/workstation/camera/camera_description.h"
#include "platform/workstation/camera/video_service.h"
#include "platform/workstation/views/size_stream.h"
#include "platform/workstation/views/stream_choice.h"
#include "platform/workstation/web/access/forms.h"

namespace workstation {
namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

constexpr guint kPeriod_ms = 100;                     // ten pictures a second
constexpr std::chrono::seconds kRepetition{1};        // so that viewers see that the stream lives
constexpr std::chrono::seconds kSnapshotPatience{1};  // for the first drawing of an overlay
constexpr std::chrono::seconds kLinger{3};            // a size stays watched, for whoever asks picture by picture
constexpr StreamSize kUsualSize{1280, 720};
constexpr const char* kOwnPicture = "/platform/anonymised.jpg";
constexpr const char* kOwnStream = "/platform/anonymised.mjpg";
constexpr const char* kAnonymisedKey = "anonymised";  // whoever names it is shown nothing else
constexpr const char* kAppearanceGroup = "root.Image.I0.Appearance";
constexpr const char* kBoundary = "velmor-picture";
constexpr const char* kStreamType = "multipart/x-mixed-replace; boundary=velmor-picture";
constexpr const char* kSnapshotType = "image/jpeg";

/// How the viewers' streams are turned, as lines "name=value".
void listAppearance(SoupServerMessage* message, const HttpQuery& query) {
  if (fieldOf(query, "action") != "list" || fieldOf(query, "group") != kAppearanceGroup) {
    return answerLine(message, SOUP_STATUS_BAD_REQUEST,
                      std::string("offered is action=list&group=") + kAppearanceGroup + " only");
  }
  const CameraDescription& camera = startedCamera();
  const std::string group = kAppearanceGroup;
  answerLine(message, SOUP_STATUS_OK,
             group + ".Rotation=" + std::to_string(camera.rotation) + "\n" + group +
                 ".MirrorEnabled=" + (camera.mirrored ? "yes" : "no"));
}

/// The size of the workstation's own view that a query asks for; nothing where it is not offered.
std::optional<StreamSize> requestedOwnSize(const HttpQuery& query, const std::vector<StreamSize>& offered) {
  const std::string text = query.contains("resolution") ? fieldOf(query, "resolution") : toString(kApplicationStream);
  if (text == toString(kApplicationStream)) return kApplicationStream;
  const auto found =
      std::find_if(offered.begin(), offered.end(), [&](StreamSize size) { return toString(size) == text; });
  return found == offered.end() ? std::nullopt : std::optional(*found);
}

/// The size that a query asks for; nothing where it is not offered.
std::optional<StreamSize> requestedSize(const HttpQuery& query, const std::vector<StreamSize>& offered) {
  const auto text = query.find("resolution");
  if (text == query.end()) {
    if (std::find(offered.begin(), offered.end(), kUsualSize) != offered.end()) return kUsualSize;
    const auto pixels = [](StreamSize size) { return size.width * size.height; };
    return *std::max_element(offered.begin(), offered.end(),
                             [&](StreamSize a, StreamSize b) { return pixels(a) < pixels(b); });
  }
  const auto named = [&](StreamSize size) { return toString(size) == text->second; };
  const auto found = std::find_if(offered.begin(), offered.end(), named);
  return found == offered.end() ? std::nullopt : std::optional(*found);
}

std::string listOf(const std::vector<StreamSize>& sizes) {
  std::string list;
  for (const StreamSize size : sizes) list += (list.empty() ? "" : ", ") + toString(size);
  return list;
}

std::shared_ptr<GBytes> toBytes(const std::string& text) {
  return {g_bytes_new(text.data(), text.size()), GLibRelease()};
}

/// One picture as it is sent, shared by all who are sent it.
struct Sendable {
  explicit Sendable(const ViewedPicture& picture)
      : image(toBytes(picture.jpeg)),
        part(toBytes("Content-Type: image/jpeg\r\nContent-Length: " + std::to_string(picture.jpeg.size()) + "\r\n\r\n" +
                     picture.jpeg + "\r\n--" + kBoundary + "\r\n")),
        number(picture.number),
        anonymised(picture.anonymised),
        complete(picture.complete) {}

  std::shared_ptr<GBytes> image;
  std::shared_ptr<GBytes> part;  ///< of a stream; ends with the boundary, so that browsers show it at once
  std::uint64_t number;
  bool anonymised;
  bool complete;
};

/// One request for pictures. It is sent a picture only when it has taken the one before.
class Viewer {
 public:
  enum class Kind { kSnapshot, kStream };

  /// `anonymised`: whether the stream is the anonymised one now, or has been asked for as such.
  Viewer(SoupServerMessage* message, Kind kind, bool anonymised)
      : m_message(share(message)), m_kind(kind), m_anonymised(anonymised), m_came(Clock::now()) {}
  ~Viewer() { g_signal_handlers_disconnect_by_data(m_message.get(), this); }
  Viewer(const Viewer&) = delete;
  Viewer& operator=(const Viewer&) = delete;

  /// Calls `left` when the message has ended, whoever ended it.
  void begin(std::function<void()> left) {
    m_left = std::move(left);
    g_signal_connect(m_message.get(), "finished", G_CALLBACK(onLeft), this);
    g_signal_connect(m_message.get(), "disconnected", G_CALLBACK(onLeft), this);
    soup_server_message_pause(m_message.get());
    if (m_kind == Kind::kStream) beginStream();
  }

  /// The picture of now. A snapshot waits for a complete one for a while.
  void show(const Sendable& picture) {
    // Whoever came for pictures without faces, or has seen such, is never shown others.
    m_anonymised = m_anonymised || picture.anonymised;
    if (m_anonymised && !picture.anonymised) return drop();
    if (m_kind == Kind::kStream) return offer(picture);
    if (picture.complete || Clock::now() - m_came > kSnapshotPatience) answer(picture);
  }

  void answerFailure(const std::string& reason) {
    if (m_kind == Kind::kStream) return drop();
    if (std::exchange(m_is_over, true)) return;
    answerLine(m_message.get(), SOUP_STATUS_SERVICE_UNAVAILABLE, reason);
    soup_server_message_unpause(m_message.get());
  }

 private:
  static void onLeft(SoupServerMessage* /*message*/, gpointer viewer) { static_cast<Viewer*>(viewer)->m_left(); }
  static void onWritten(SoupServerMessage* /*message*/, gpointer viewer) {
    static_cast<Viewer*>(viewer)->m_is_ready = true;
  }

  /// The next picture of a stream, unless it is known or the viewer is still busy with the one before.
  void offer(const Sendable& picture) {
    if (!m_is_ready || (picture.number == m_number && Clock::now() - m_sent < kRepetition)) return;
    append(picture.part.get());
    m_number = picture.number;
    m_sent = Clock::now();
  }

  void answer(const Sendable& picture) {
    if (std::exchange(m_is_over, true)) return;
    soup_server_message_set_status(m_message.get(), SOUP_STATUS_OK, nullptr);
    soup_message_headers_replace(soup_server_message_get_response_headers(m_message.get()), "Content-Type",
                                 kSnapshotType);
    soup_message_body_append_bytes(soup_server_message_get_response_body(m_message.get()), picture.image.get());
    soup_server_message_unpause(m_message.get());
  }

  void drop() {
    if (!std::exchange(m_is_over, true)) dropConnection(m_message.get());
  }

  void beginStream() {
    soup_server_message_set_status(m_message.get(), SOUP_STATUS_OK, nullptr);
    SoupMessageHeaders* headers = soup_server_message_get_response_headers(m_message.get());
    soup_message_headers_replace(headers, "Content-Type", kStreamType);
    soup_message_headers_set_encoding(headers, SOUP_ENCODING_EOF);
    soup_message_body_set_accumulate(soup_server_message_get_response_body(m_message.get()), FALSE);
    g_signal_connect(m_message.get(), "wrote-chunk", G_CALLBACK(onWritten), this);
    append(toBytes(std::string("--") + kBoundary + "\r\n").get());
  }

  void append(GBytes* bytes) {
    m_is_ready = false;
    soup_message_body_append_bytes(soup_server_message_get_response_body(m_message.get()), bytes);
    soup_server_message_unpause(m_message.get());
  }

  GLibPtr<SoupServerMessage> m_message;
  Kind m_kind;
  bool m_anonymised;
  Clock::time_point m_came;
  std::function<void()> m_left;
  bool m_is_ready = false;  ///< has taken all that it was sent
  bool m_is_over = false;   ///< is answered, or dropped
  std::uint64_t m_number = 0;
  Clock::time_point m_sent;
};

}  // namespace

/// The server's thread alone, save for the beginning and the end.
class ViewStreams::Implementation {
 public:
  explicit Implementation(HttpServer& server) : m_server(server) {
    server.addEndpoint("/axis-cgi/param.cgi", listAppearance);
    server.addEndpoint("/axis-cgi/mjpg/video.cgi", [this](SoupServerMessage* message, const HttpQuery& query) {
      receive(message, query, Viewer::Kind::kStream);
    });
    server.addEndpoint("/axis-cgi/jpg/image.cgi", [this](SoupServerMessage* message, const HttpQuery& query) {
      receive(message, query, Viewer::Kind::kSnapshot);
    });
    server.addEndpoint(kOwnStream, [this](SoupServerMessage* message, const HttpQuery& query) {
      receiveOwn(message, query, Viewer::Kind::kStream);
    });
    server.addEndpoint(kOwnPicture, [this](SoupServerMessage* message, const HttpQuery& query) {
      receiveOwn(message, query, Viewer::Kind::kSnapshot);
    });
  }
  ~Implementation() = default;
  Implementation(const Implementation&) = delete;
  Implementation& operator=(const Implementation&) = delete;

 private:
  /// A stream somebody watches.
  struct Audience {
    explicit Audience(StreamKey key) : stream(key) {}
    /// Takes the picture of now. Throws std::runtime_error when there is none.
    void update() {
      const auto now = stream.picture();
      if (now != std::exchange(viewed, now)) picture.emplace(*now);
    }

    SizeStream stream;
    std::shared_ptr<const ViewedPicture> viewed;
    std::optional<Sendable> picture;  ///< made of it
    std::list<std::shared_ptr<Viewer>> viewers;
    Clock::time_point last_watched = Clock::now();
  };

  void receive(SoupServerMessage* message, const HttpQuery& query, Viewer::Kind kind) {
    const auto& offered = startedCamera().stream_sizes;
    const auto size = requestedSize(query, offered);
    if (!size) return refuseSize(message, offered);
    const bool demanded = query.contains(kAnonymisedKey);
    const bool is_anonymised = currentStreamChoice().anonymised == size;  // it shows a card where there is no picture
    if (!is_anonymised && !newestFrame()) return answerLine(message, SOUP_STATUS_SERVICE_UNAVAILABLE, kNoPictureNow);
    if (demanded && !is_anonymised) {
      return answerLine(message, SOUP_STATUS_CONFLICT, "the stream of " + toString(*size) + " is not anonymised now");
    }
    if (soup_server_message_get_method(message) == SOUP_METHOD_HEAD) return answerHead(message, kind);
    admit(message, {*size}, kind, demanded);
  }

  /// The view that no setting chooses: a picture, or the card that says why there is none.
  void receiveOwn(SoupServerMessage* message, const HttpQuery& query, Viewer::Kind kind) {
    const auto& offered = startedCamera().stream_sizes;
    const auto size = requestedOwnSize(query, offered);
    if (!size) return refuseSize(message, offered);
    if (soup_server_message_get_method(message) == SOUP_METHOD_HEAD) return answerHead(message, kind);
    admit(message, {*size, true}, kind, true);
  }

  static void refuseSize(SoupServerMessage* message, const std::vector<StreamSize>& offered) {
    answerLine(message, SOUP_STATUS_BAD_REQUEST,
               "the camera offers no stream of that resolution; it offers " + listOf(offered));
  }

  static void answerHead(SoupServerMessage* message, Viewer::Kind kind) {
    soup_server_message_set_status(message, SOUP_STATUS_OK, nullptr);
    soup_message_headers_replace(soup_server_message_get_response_headers(message), "Content-Type",
                                 kind == Viewer::Kind::kStream ? kStreamType : kSnapshotType);
  }

  void admit(SoupServerMessage* message, StreamKey key, Viewer::Kind kind, bool anonymised) {
    Audience& audience = audienceOf(key);
    auto viewer = std::make_shared<Viewer>(message, kind, anonymised || audience.stream.isAnonymised());
    audience.viewers.push_back(viewer);
    viewer->begin([this, key, raw = viewer.get()] { remove(key, raw); });
    startTimer();
    if (kind == Viewer::Kind::kSnapshot) serve(audience);
  }

  Audience& audienceOf(StreamKey key) {
    const auto found = std::find_if(m_audiences.begin(), m_audiences.end(),
                                    [&](const Audience& audience) { return audience.stream.key() == key; });
    return found != m_audiences.end() ? *found : m_audiences.emplace_back(key);
  }

  /// Called from within the viewer, who must not vanish under it.
  void remove(StreamKey key, Viewer* gone) {
    auto& viewers = audienceOf(key).viewers;
    const auto found =
        std::find_if(viewers.begin(), viewers.end(), [&](const auto& viewer) { return viewer.get() == gone; });
    if (found == viewers.end()) return;
    m_gone.push_back(std::move(*found));
    viewers.erase(found);
  }

  void serve(Audience& audience) {
    std::string failure;
    try {
      audience.update();
    } catch (const std::exception& error) {
      failure = error.what();
    }
    const auto viewers = audience.viewers;  // who leaves meanwhile changes the list
    for (const auto& viewer : viewers) {
      if (failure.empty()) {
        viewer->show(*audience.picture);
      } else {
        viewer->answerFailure(failure);
      }
    }
  }

  void turn() {
    m_gone.clear();
    const Clock::time_point now = Clock::now();
    for (Audience& audience : m_audiences) {
      if (audience.viewers.empty()) continue;
      audience.last_watched = now;
      serve(audience);
    }
    m_audiences.remove_if(
        [&](const Audience& audience) { return audience.viewers.empty() && now - audience.last_watched > kLinger; });
    if (m_audiences.empty() && m_gone.empty()) m_timer.reset();
  }

  void startTimer() {
    if (m_timer) return;
    m_timer.reset(g_timeout_source_new(kPeriod_ms));
    g_source_set_callback(
        m_timer.get(),
        [](gpointer self) -> gboolean {
          static_cast<Implementation*>(self)->turn();
          return G_SOURCE_CONTINUE;
        },
        this, nullptr);
    g_source_attach(m_timer.get(), m_server.context());
  }

  HttpServer& m_server;
  std::list<Audience> m_audiences;
  std::vector<std::shared_ptr<Viewer>> m_gone;
  GLibPtr<GSource> m_timer;
};

ViewStreams::ViewStreams(HttpServer& server) : m_implementation(std::make_unique<Implementation>(server)) {}

ViewStreams::~ViewStreams() = default;

}  // namespace workstation
