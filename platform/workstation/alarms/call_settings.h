// What the installer has set for calls: when, how loud, and who comes next.
#pragma once

#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

#include "platform/workstation/alarms/alarm.h"

namespace workstation {

/// A time of the day on the clock of the place, in minutes; over midnight where it ends before it begins.
struct CallHours {
  int from = 0;
  int to = 24 * 60;

  bool operator==(const CallHours&) const = default;
};

/// For one kind of alarm.
struct CallRules {
  std::chrono::seconds delay{0};      ///< what ends by itself within it calls nobody
  std::vector<CallHours> hours{{}};   ///< nobody is called at other times
  std::chrono::seconds escalate{60};  ///< unanswered: the next level
  std::chrono::seconds repeat{60};    ///< at the last level
  std::chrono::seconds coming{300};   ///< who was coming has not come; 0: is waited for for ever

  bool operator==(const CallRules&) const = default;
};

/// Somebody who is called.
struct Receiver {
  std::string kind = "people";  ///< those who look at the page; or "webhook"
  std::string name = {};        ///< of all but people: by it one knows what it has got already
  std::string url = {};
  std::string secret = {};  ///< signs what goes there

  bool operator==(const Receiver&) const = default;
};

struct CallSettings {
  CallRules fall;
  CallRules exit{.escalate = std::chrono::seconds(180), .repeat = std::chrono::seconds(300)};
  std::vector<std::vector<Receiver>> levels{{Receiver{}}};

  [[nodiscard]] const CallRules& rules(AlarmKind kind) const { return kind == AlarmKind::kFall ? fall : exit; }
  [[nodiscard]] int lastLevel() const { return static_cast<int>(levels.size()); }

  bool operator==(const CallSettings&) const = default;
};

/// Whether somebody may be called at this moment, on the clock of the place.
bool isWithin(const std::vector<CallHours>& hours, TimeStamp now);

/// The document of docs/alarms.md, in one line; without the secrets it says of each whether it is set.
std::string documentOf(const CallSettings& settings, bool with_secrets);
/// A secret that is not given is that of the receiver of this name in `before`. Throws std::runtime_error with one
/// line for whoever has written the document.
CallSettings parseCallSettings(const std::string& document, const CallSettings& before);

/// calls.json in the directory, else the generation before, else the defaults. `problem` becomes a line where
/// something is there and cannot be used.
CallSettings loadCallSettings(const std::filesystem::path& directory, std::string& problem);
/// On disk on return. Throws std::runtime_error with one line.
void storeCallSettings(const std::filesystem::path& directory, const CallSettings& settings);

}  // namespace workstation
