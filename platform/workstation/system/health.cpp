#include "platform/workstation/system/health.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <deque>
#include <map>
#include <mutex>

namespace workstation {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::minutes kWindow{1};

struct Known {
  std::mutex mutex;
  std::map<Trouble, Health::Wrong> wrong;
  std::uint64_t cycle = 0;
  std::deque<Clock::time_point> completions;  ///< of the last minute, and the last one always
  Clock::time_point picture_taken;
  bool is_capture_known = false;

  void forgetOld(Clock::time_point now) {
    while (completions.size() > 1 && now - completions.front() > kWindow) completions.pop_front();
  }
};

Known& known() {
  static auto& the_known = *new Known;  // never destroyed: threads may ask until the process ends
  return the_known;
}

/// With the lock held.
void setTrouble(Trouble trouble, const std::string& text, TimeStamp since = ticker_clock::now()) {
  const auto entry = known().wrong.try_emplace(trouble, Health::Wrong{trouble, since, text}).first;
  entry->second.text = text;
}

/// What follows from the beat and from the last cycle's age. With the lock held.
void derive(const Health& health) {
  if (health.cycle_age.value_or(health.beat.age) > kLongestSilence) {
    setTrouble(Trouble::kAnalysisStandsStill, "No picture is being analysed: nobody is being watched.");
  } else {
    known().wrong.erase(Trouble::kAnalysisStandsStill);
  }
  if (health.beat.left_out_last_minute == 0) {
    known().wrong.erase(Trouble::kTicksLeftOut);
    return;
  }
  std::array<char, 160> text{};
  std::snprintf(text.data(), text.size(),
                "This machine is too slow: pictures left out in the last minute: %llu; alarms take %.1f times as long.",
                static_cast<unsigned long long>(health.beat.left_out_last_minute), health.slowdown);
  setTrouble(Trouble::kTicksLeftOut, text.data());
}

}  // namespace

const char* nameOf(Trouble trouble) {
  switch (trouble) {
    case Trouble::kAlarmsNotRecorded:
      return "alarms-not-recorded";
    case Trouble::kAlarmsNotStored:
      return "alarms-not-stored";
    case Trouble::kReceiverNotReached:
      return "receiver-not-reached";
    case Trouble::kCertificateEnds:
      return "certificate-ends";
    case Trouble::kAnalysisStandsStill:
      return "analysis-stands-still";
    case Trouble::kCameraAway:
      return "camera-away";
    case Trouble::kPictureFrozen:
      return "picture-frozen";
    case Trouble::kTooDark:
      return "too-dark";
    case Trouble::kLensCovered:
      return "lens-covered";
    case Trouble::kOutOfFocus:
      return "out-of-focus";
    case Trouble::kCameraMoved:
      return "camera-moved";
    case Trouble::kLensAway:
      return "lens-away";
    case Trouble::kTicksLeftOut:
      return "ticks-left-out";
  }
  return "";
}

bool blinds(Trouble trouble) {
  switch (trouble) {
    case Trouble::kAnalysisStandsStill:
    case Trouble::kCameraAway:
    case Trouble::kPictureFrozen:
    case Trouble::kTooDark:
    case Trouble::kLensCovered:
    case Trouble::kOutOfFocus:
    case Trouble::kCameraMoved:
      return true;
    case Trouble::kAlarmsNotRecorded:
    case Trouble::kAlarmsNotStored:
    case Trouble::kReceiverNotReached:
    case Trouble::kCertificateEnds:
    case Trouble::kLensAway:
    case Trouble::kTicksLeftOut:
      return false;
  }
  return false;
}

void reportTrouble(Trouble trouble, const std::string& text, TimeStamp since) {
  const std::scoped_lock lock(known().mutex);
  setTrouble(trouble, text, since);
}

void endTrouble(Trouble trouble) {
  const std::scoped_lock lock(known().mutex);
  known().wrong.erase(trouble);
}

void noteCompleteCycle(std::uint64_t cycle, Clock::time_point picture_taken, bool is_known) {
  const std::scoped_lock lock(known().mutex);
  known().cycle = cycle;
  known().completions.push_back(Clock::now());
  known().forgetOld(known().completions.back());
  known().picture_taken = picture_taken;
  known().is_capture_known = is_known;
}

const Health::Wrong* Health::blinding() const {
  const auto first = std::find_if(wrong.begin(), wrong.end(), [](const Wrong& one) { return blinds(one.what); });
  return first == wrong.end() ? nullptr : &*first;
}

Health currentHealth() {
  Health health;
  health.beat = ticker_clock::beat();
  const std::scoped_lock lock(known().mutex);
  health.cycle = known().cycle;
  if (health.cycle != 0) {
    const Clock::time_point now = Clock::now();
    known().forgetOld(now);
    const auto& completions = known().completions;
    health.cycle_age = now - completions.back();
    if (completions.size() > 1 && health.beat.period.count() > 0) {
      const auto distance = (completions.back() - completions.front()) / (completions.size() - 1);
      health.slowdown = std::max(1.0, std::chrono::duration<double>(distance) / health.beat.period);
    }
    health.picture_age = now - known().picture_taken;
    health.delay = completions.back() - known().picture_taken;
    health.is_capture_known = known().is_capture_known;
  }
  derive(health);
  for (const auto& [trouble, wrong] : known().wrong) health.wrong.push_back(wrong);
  return health;
}

}  // namespace workstation
