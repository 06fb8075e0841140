#include "platform/workstation/web/camera_service.h"

#include <syslog.h>

#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include "platform/clock/clock.h"
#include "platform/workstation/camera/camera_description.h"
#include "platform/workstation/camera/chosen_optics.h"
#include "platform/workstation/camera/takeover.h"
#include "platform/workstation/camera/video_service.h"
#include "platform/workstation/decoding/video_source.h"
#include "platform/workstation/parameters/changes.h"
#include "platform/workstation/system/state_directory.h"
#include "platform/workstation/system/utc_text.h"
#include "platform/workstation/web/access/forms.h"
#include "platform/workstation/web/access/side_work.h"
#include "platform/workstation/web/access/visitor.h"
#include "platform/workstation/web/camera_address.h"
#include "platform/workstation/web/check_process.h"

namespace workstation {
namespace {

using nlohmann::ordered_json;
using Clock = std::chrono::steady_clock;

constexpr const char* kPath = "/platform/camera";
constexpr const char* kPicturePath = "/platform/camera/picture";
constexpr std::size_t kMostWaiting = 8;

/// What the page shows when velmor_camera has said nothing.
ordered_json withoutAnswer() {
  return {{"end", "broken"},
          {"fits", false},
          {"problem", "The check itself has failed: it was ended, or could not be started."},
          {"advice", "Try again; the system log may say more."},
          {"facts", ordered_json::array()},
          {"fingerprint", ""}};
}

ordered_json documentOf(const Optics& optics) {
  return {{"product_name", optics.product_name}, {"focal_length_um", optics.focal_length_um}};
}

bool playsRecording() { return kindOf(startedCamera().source) == SourceKind::kFile; }

/// On the server's thread.
class Service {
 public:
  Service(CameraServiceSettings settings, GMainContext* server)
      : m_settings(std::move(settings)), m_storing(server, kMostWaiting) {}

  void tell(SoupServerMessage* message);
  void show(SoupServerMessage* message, const HttpQuery& query);
  void obey(SoupServerMessage* message, const ProgramRequest& request);

 private:
  struct Check {
    std::uint64_t id;
    CameraSource source;
    TimeStamp began;
    std::unique_ptr<CheckProcess> process;  ///< while it is at work
    ordered_json answer;
    std::string picture;
    Clock::time_point done;
  };

  void look();
  void check(const HttpQuery& form);
  void takeOver(const HttpQuery& form, const std::string& by);
  void choose(SoupServerMessage* message, const HttpQuery& form, const std::string& by);
  void noteChosen(const Optics& chosen, const std::string& by);
  ordered_json document();
  [[nodiscard]] ordered_json checkDocument() const;
  [[nodiscard]] ordered_json takeoverDocument() const;
  [[nodiscard]] ordered_json opticsDocument() const;

  const CameraServiceSettings m_settings;
  std::optional<Check> m_check;  ///< the last one
  std::uint64_t m_checks = 0;
  std::optional<Takeover> m_takeover;
  std::uint64_t m_taken_check = 0;  ///< what m_takeover is about
  std::optional<Optics> m_chosen;   ///< in this run, for the next
  SideWork m_storing;
};

/// Takes the answer over when it has come.
void Service::look() {
  if (!m_check || !m_check->process) return;
  auto answer = m_check->process->takeAnswer();
  if (!answer) return;
  m_check->process.reset();
  m_check->answer = ordered_json::parse(answer->document, nullptr, false);
  m_check->picture = std::move(answer->picture);
  m_check->done = Clock::now();
  if (!m_check->answer.is_object() || !m_check->answer.contains("end")) m_check->answer = withoutAnswer();
  syslog(LOG_INFO, "tried on the page: %s: %s", withoutSecrets(m_check->source.uri).c_str(),
         m_check->answer.value("end", "").c_str());
}

ordered_json Service::checkDocument() const {
  if (!m_check) return nullptr;
  ordered_json told = {{"id", m_check->id},
                       {"address", withoutSecrets(m_check->source.uri)},
                       {"began", utcText(m_check->began)},
                       {"state", m_check->process ? "checking" : "done"}};
  if (m_check->process) return told;
  for (const char* key : {"end", "fits", "problem", "advice", "facts", "fingerprint"}) {
    told[key] = m_check->answer.value(key, ordered_json());
  }
  if (!m_check->picture.empty()) told["picture"] = std::string(kPicturePath) + "?check=" + std::to_string(m_check->id);
  return told;
}

ordered_json Service::takeoverDocument() const {
  if (!m_takeover) return nullptr;
  constexpr const char* kStates[] = {"opening", "done", "failed"};
  const auto [state, reason] = m_takeover->progress();
  return {{"check", m_taken_check}, {"state", kStates[static_cast<std::size_t>(state)]}, {"reason", reason}};
}

ordered_json Service::opticsDocument() const {
  const Optics used = opticsOf(startedCamera());
  ordered_json told = documentOf(used);
  told["chosen"] = m_chosen && *m_chosen != used ? documentOf(*m_chosen) : ordered_json();
  return told;
}

ordered_json Service::document() {
  look();
  return {{"time", utcText(ticker_clock::now())},
          {"source", withoutSecrets(watchedSource().uri)},
          {"recording", playsRecording()},
          {"optics", opticsDocument()},
          {"check", checkDocument()},
          {"takeover", takeoverDocument()}};
}

void Service::tell(SoupServerMessage* message) {
  try {
    answerDocument(message, document());
  } catch (const std::exception& exception) {
    answerLine(message, SOUP_STATUS_INTERNAL_SERVER_ERROR, withoutSecrets(exception.what()));
  }
}

void Service::show(SoupServerMessage* message, const HttpQuery& query) {
  look();
  if (!m_check || m_check->picture.empty() || fieldOf(query, "check") != std::to_string(m_check->id)) {
    return answerLine(message, SOUP_STATUS_NOT_FOUND, "There is no such picture any more.");
  }
  soup_server_message_set_status(message, SOUP_STATUS_OK, nullptr);
  soup_server_message_set_response(message, "image/jpeg", SOUP_MEMORY_COPY, m_check->picture.data(),
                                   m_check->picture.size());
}

void Service::obey(SoupServerMessage* message, const ProgramRequest& request) {
  try {
    const HttpQuery& form = formOf(request);
    look();
    const std::string action = fieldOf(form, "action");
    const std::string by = visitorOf(message).name;
    if (action == "check") {
      check(form);
    } else if (action == "take_over") {
      takeOver(form, by);
    } else if (action == "optics") {
      return choose(message, form, by);
    } else {
      throw Refusal{SOUP_STATUS_BAD_REQUEST, "The action is check, take_over or optics."};
    }
    answerDocument(message, document(), SOUP_STATUS_ACCEPTED);
  } catch (const Refusal& refusal) {
    answerLine(message, refusal.status, refusal.line);
  } catch (const std::exception& mistake) {
    answerLine(message, SOUP_STATUS_BAD_REQUEST, mistake.what());
  }
}

void Service::check(const HttpQuery& form) {
  if (m_check && m_check->process) {
    throw Refusal{SOUP_STATUS_CONFLICT, "Another address is being tried; it takes less than half a minute."};
  }
  CameraSource source = cameraFrom(form);
  const CameraDescription& camera = startedCamera();
  const nlohmann::json question = {
      {"source", source.uri},        {"user", source.login.user},   {"password", source.login.password},
      {"rotation", camera.rotation}, {"mirrored", camera.mirrored}, {"certificate", source.certificate}};
  auto process = std::make_unique<CheckProcess>(m_settings.checker, question.dump(), m_settings.patience);
  m_check = Check{++m_checks, std::move(source), ticker_clock::now(), std::move(process), {}, {}, {}};
}

void Service::takeOver(const HttpQuery& form, const std::string& by) {
  const auto refuse = [](const char* line) { throw Refusal{SOUP_STATUS_CONFLICT, line}; };
  if (playsRecording()) {
    refuse("A recording is being played, and no camera is taken over then: start ./run --source ADDRESS.");
  }
  if (m_takeover && m_takeover->progress().state == Takeover::State::kOpening) {
    refuse("A camera is being taken over just now.");
  }
  const bool is_known = m_check && !m_check->process && fieldOf(form, "check") == std::to_string(m_check->id);
  if (!is_known || Clock::now() - m_check->done > m_settings.good) refuse("Try the address once more first.");
  if (!m_check->answer.value("fits", false)) refuse("Only a camera that can be watched is taken over.");
  auto camera = openedCamera();
  if (!camera) refuse("The program has not begun to watch yet.");
  m_taken_check = m_check->id;
  m_takeover.emplace(std::move(camera), m_check->source,
                     [by, from = withoutSecrets(watchedSource().uri), to = withoutSecrets(m_check->source.uri)] {
                       noteChange(by, "camera.source", from, to);
                     });
}

void Service::choose(SoupServerMessage* message, const HttpQuery& form, const std::string& by) {
  const Optics chosen = opticsFrom(fieldOf(form, "product_name"), fieldOf(form, "focal_length_um"));
  const auto work = [this, chosen, by, state = stateDirectory(), camera = startedCamera()]() -> SideWork::Outcome {
    storeChosenOptics(state, chosen, camera);
    return [this, chosen, by](SoupServerMessage* asking) {
      noteChosen(chosen, by);
      if (asking != nullptr) answerDocument(asking, document(), SOUP_STATUS_ACCEPTED);
    };
  };
  if (!m_storing.start(message, work)) {
    throw Refusal{SOUP_STATUS_SERVICE_UNAVAILABLE, "The disk does not answer; try again later."};
  }
}

/// It is on disk.
void Service::noteChosen(const Optics& chosen, const std::string& by) {
  const Optics before = m_chosen.value_or(opticsOf(startedCamera()));
  m_chosen = chosen;
  const auto note = [&by](const char* key, const std::string& from, const std::string& to) {
    if (from != to) noteChange(by, key, from, to);
  };
  note("camera.product_name", before.product_name, chosen.product_name);
  note("camera.focal_length_um", std::to_string(before.focal_length_um), std::to_string(chosen.focal_length_um));
}

}  // namespace

void addCamera(HttpServer& server, const CameraServiceSettings& settings) {
  const auto service = std::make_shared<Service>(settings, server.context());
  server.addEndpoint(kPath, [service](SoupServerMessage* message, const HttpQuery&) { service->tell(message); });
  server.addEndpoint(kPicturePath,
                     [service](SoupServerMessage* message, const HttpQuery& query) { service->show(message, query); });
  server.addForm(
      kPath, [service](SoupServerMessage* message, const ProgramRequest& request) { service->obey(message, request); });
}

}  // namespace workstation
