#include "platform/workstation/camera_check/trial_words.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <string_view>

#include "platform/workstation/decoding/nv12_picture.h"

namespace workstation {
namespace {

/// The program takes a picture this often, and one that is older is none.
constexpr double kPicturesWanted = 2;
constexpr double kOldest_s = 2;

std::string number(double value, int digits) {
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%.*f", digits, value);
  return text.data();
}

std::string videoOf(const Trial& trial) {
  const I420View view = trial.picture->view();
  std::string text = trial.codec.empty() ? "a codec that is not told" : trial.codec;
  text += ", " + std::to_string(view.width) + "x" + std::to_string(view.height);
  const std::uint32_t said = trial.picture->framerate();
  text += said == 0 ? ", no rate told" : ", " + std::to_string(said) + " pictures a second told";
  text += trial.rate > 0 ? ", " + number(trial.rate, 1) + " came" : ", one picture came";
  if (trial.rate > 0 && trial.rate < kPicturesWanted) text += ": fewer than the two that the program looks at";
  return text;
}

std::string delayOf(const Trial& trial) {
  if (!trial.delay) return "not told by this source";
  const double seconds = std::chrono::duration<double>(*trial.delay).count();
  std::string text = number(seconds, 2) + " s from capture to arrival";
  if (seconds > kOldest_s) text += ": pictures older than 2 s count as none; is the camera's clock right?";
  return text;
}

std::string shapeOf(const I420View& view) {
  constexpr double kAlike = 0.005;  // no bar of a pixel is worth a word
  const double shape = view.width * view.pixel_aspect / view.height * kSensorShape.height / kSensorShape.width;
  if (std::abs(shape - 1) < kAlike) return "16:9, fills the picture that is analysed";
  const std::string where = shape > 1 ? "above and below" : "left and right";
  return "not 16:9, so black bars stand " + where + "; nothing is cut off";
}

std::string machineOf(const Trial& trial) {
  std::string text = number(trial.processor_ms, 1) + " ms of processor time a picture, " +
                     number(100 * coresTaken(trial), 0) + " % of one core; this machine has " +
                     std::to_string(trial.cores);
  return text + (trial.end == TrialEnd::kTooSlow ? ": too slow" : ": fast enough");
}

/// The Debian package of a decoder or of what takes a stream apart.
std::string packageFor(const std::string& missing) {
  struct Known {
    std::string_view what;
    const char* package;
  };
  constexpr std::array kKnown{
      Known{"application/x-rtp", "gstreamer1.0-plugins-good"}, Known{"image/jpeg", "gstreamer1.0-plugins-good"},
      Known{"video/x-vp", "gstreamer1.0-plugins-good"},        Known{"video/x-av1", "gstreamer1.0-plugins-bad"},
      Known{"video/x-theora", "gstreamer1.0-plugins-base"},    Known{"urisource-", "gstreamer1.0-plugins-good"},
      Known{"decoder-video/", "gstreamer1.0-libav"},           Known{"video/", "gstreamer1.0-libav"}};
  const auto found = std::find_if(kKnown.begin(), kKnown.end(),
                                  [&](const Known& known) { return missing.find(known.what) != std::string::npos; });
  return found == kKnown.end() ? "" : found->package;
}

/// "gstreamer|1.0|program|H.265 decoder|decoder-video/x-h265": what is missing, for people.
std::string nameIn(const std::string& missing) {
  std::size_t begin = 0;
  for (int field = 0; field < 3 && begin != std::string::npos; ++field) {
    begin = missing.find('|', begin);
    if (begin != std::string::npos) ++begin;
  }
  if (begin == std::string::npos) return "";
  return missing.substr(begin, missing.find('|', begin) - begin);
}

std::string decoderAdvice(const Trial& trial) {
  constexpr const char* kOther = "Or choose H.264 in the camera's own settings.";
  const std::string package = packageFor(trial.missing);
  const std::string name = nameIn(trial.missing);
  std::string text = name.empty() ? "A decoder is missing." : "Missing: " + name + ".";
  if (!package.empty()) text += " Install the Debian package " + package + ".";
  return text + " " + kOther;
}

/// Of each end its name, what is wrong, with "{}" for the reason, and what to do; in the order of TrialEnd.
struct Words {
  const char* name;
  const char* problem;
  const char* advice;
};

constexpr const char* kCheckCable =
    "Check that the camera has power, that its cable or radio is connected, and that its address is right.";

constexpr std::array kWords{
    Words{"fits", "", ""},
    Words{"bad-address", "This cannot be opened: {}.",
          "An address looks like rtsp://192.168.1.20/stream; the camera's manual or its own page names it."},
    Words{"unknown-host", "Nobody here knows a machine of this name.",
          "Check the name's spelling, or give the camera's number, such as rtsp://192.168.1.20/stream."},
    Words{"refused", "The machine is there and refuses the connection: nothing of it listens at this port.",
          "Check the port, and that RTSP or HTTP is switched on in the camera's own settings."},
    Words{"no-route", "No way leads from here to this machine: {}.", kCheckCable},
    Words{"no-answer", "Nothing answers at this address.", kCheckCable},
    Words{"certificate", "The camera shows a certificate that this machine does not believe.",
          "Compare its fingerprint with the one that the camera's own page shows, and name it if they are the same."},
    Words{"no-tls", "What answers there does not speak TLS: {}.",
          "Check the port, or try the address with rtsp or http in place of rtsps or https."},
    Words{"login-missing", "The camera asks for a user name and a password (401).",
          "Give those of a user whom the camera lets watch; the camera's own page makes one."},
    Words{"login-wrong", "The camera refuses this user name or this password (401).",
          "Check both. Some cameras refuse even the right ones for some minutes after wrong ones."},
    Words{"not-found", "The camera has nothing at this path (404).",
          "Check what stands after the host's name; the camera's manual or its own page names it."},
    Words{"no-video", "What comes from there holds no video: {}.",
          "Check the path: this may be the camera's page, its sound, or a single picture."},
    Words{"no-decoder", "The camera's pictures cannot be decoded here.", ""},
    Words{"silent", "The camera takes the request and sends no picture.",
          "Check that this stream is switched on, and that not too many others watch it."},
    Words{"broken", "It cannot be watched: {}.",
          "Try again; if it stays so, start the camera anew or try another of its streams."},
    Words{"too-much", "It sends more than this program takes: {}.",
          "The camera's own page has the setting; many cameras have a second, smaller stream."},
    Words{"too-slow", "This machine is too slow for it: {}.",
          "In the camera's own settings choose a smaller picture, fewer pictures a second or H.264."}};

const Words& wordsFor(TrialEnd end) { return kWords.at(static_cast<std::size_t>(end)); }

/// Two sentences that end alike would have two full stops.
std::string withoutFullStop(std::string text) {
  if (text.ends_with('.')) text.pop_back();
  return text;
}

}  // namespace

const char* nameOf(TrialEnd end) { return wordsFor(end).name; }

Facts factsOf(const Trial& trial) {
  if (!trial.picture) return {};
  Facts facts{{"Video", videoOf(trial)}};
  if (!trial.transport.empty()) facts.emplace_back("Way", trial.transport);
  facts.emplace_back("Delay", delayOf(trial));
  facts.emplace_back("Shape", shapeOf(trial.picture->view()));
  if (trial.processor_ms > 0) facts.emplace_back("Machine", machineOf(trial));
  if (!trial.left_out.empty()) facts.emplace_back("Note", trial.left_out);
  return facts;
}

std::string problemOf(const Trial& trial) {
  std::string text = wordsFor(trial.end).problem;
  const std::string reason = trial.end == TrialEnd::kTooSlow ? "decoding takes " + number(coresTaken(trial), 1) +
                                                                   " of its " + std::to_string(trial.cores) + " cores"
                                                             : withoutFullStop(trial.reason);
  if (const std::size_t place = text.find("{}"); place != std::string::npos) text.replace(place, 2, reason);
  return text;
}

std::string adviceFor(const Trial& trial) {
  if (trial.end == TrialEnd::kNoDecoder) return decoderAdvice(trial);
  std::string text = wordsFor(trial.end).advice;
  if (!trial.fingerprint.empty()) text += " SHA-256: " + trial.fingerprint;
  return text;
}

}  // namespace workstation
