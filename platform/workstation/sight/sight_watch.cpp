#include "platform/workstation/sight/sight_watch.h"

#include <syslog.h>

#include <array>
#include <cstdlib>
#include <exception>
#include <mutex>
#include <utility>

#include "platform/clock/clock.h"
#include "platform/workstation/system/health.h"
#include "platform/workstation/system/side_thread.h"
#include "platform/workstation/system/state_directory.h"
#include "platform/workstation/system/utc_text.h"

namespace workstation {
namespace {

using Parameters = std::map<std::string, std::string, std::less<>>;
using namespace std::chrono_literals;

constexpr std::size_t kMostWaiting = 2;
constexpr int kSettled = 6;          ///< pictures: a save sets one parameter after the other
constexpr auto kSaveAgain = 30s;     ///< after a disk has failed
constexpr int kAnalysisLong = 1280;  ///< sides of the upright picture in which areas are drawn, in pixels
constexpr int kAnalysisShort = 720;

struct Corner {
  double x, y;
};
using Area = std::array<Corner, 4>;

/// What the parameters say that matters here.
struct Wanted {
  std::string floor;       ///< empty before any are known
  std::vector<Area> beds;  ///< in use, in pixels of the upright picture
  int pictures = 0;        ///< since then
};

std::string valueOf(const Parameters& parameters, const std::string& name) {
  const auto found = parameters.find(name);
  return found == parameters.end() ? "" : found->second;
}

Wanted readParameters(const Parameters& parameters) {
  Wanted wanted;
  for (const char corner : {'0', '1', '2', '3'}) {
    for (const char axis : {'x', 'y'}) {
      wanted.floor += valueOf(parameters, std::string("FallCalibration") + corner + axis) + " ";
    }
  }
  wanted.floor += valueOf(parameters, "WRectM") + " " + valueOf(parameters, "HRectM");
  for (const std::string bed : {"1", "2", "3"}) {
    if (valueOf(parameters, "Detection" + bed + "Active") != "true") continue;
    Area area{};
    for (std::size_t corner = 0; corner < area.size(); ++corner) {
      const std::string name = "Detection" + bed + std::to_string(corner);
      area.at(corner) = {std::atof(valueOf(parameters, name + "x").c_str()),
                         std::atof(valueOf(parameters, name + "y").c_str())};
    }
    wanted.beds.push_back(area);
  }
  return wanted;
}

bool contains(const Area& area, Corner point) {
  bool inside = false;
  for (std::size_t i = 0, j = area.size() - 1; i < area.size(); j = i++) {
    const Corner& a = area.at(i);
    const Corner& b = area.at(j);
    if ((a.y > point.y) == (b.y > point.y)) continue;
    if (point.x < (b.x - a.x) * (point.y - a.y) / (b.y - a.y) + a.x) inside = !inside;
  }
  return inside;
}

/// Where a place of the sensor's picture lies in the upright one.
Corner upright(Corner place, std::uint32_t rotation) {
  switch (rotation) {
    case 90:
      return {kAnalysisShort - place.y, place.x};
    case 180:
      return {kAnalysisLong - place.x, kAnalysisShort - place.y};
    case 270:
      return {place.y, kAnalysisLong - place.x};
    default:
      return place;
  }
}

/// The cells of the beds: who lies in one lies there for longer than a reference is gathered.
std::vector<bool> cellsOf(const std::vector<Area>& beds, std::uint32_t rotation) {
  constexpr double kCell = static_cast<double>(kAnalysisLong) / kCellColumns;
  std::vector<bool> cells(kCells);
  for (std::size_t cell = 0; cell < kCells; ++cell) {
    const std::size_t row = cell / kCellColumns;
    const std::size_t column = cell % kCellColumns;
    const Corner place{(static_cast<double>(column) + 0.5) * kCell, (static_cast<double>(row) + 0.5) * kCell};
    for (const Area& bed : beds) cells[cell] = cells[cell] || contains(bed, upright(place, rotation));
  }
  return cells;
}

struct Words {
  SightFault fault;
  Trouble trouble;
  const char* text;
};

constexpr std::array<Words, kSightFaults.size()> kWords{{
    {SightFault::kFrozen, Trouble::kPictureFrozen,
     "The camera sends the same moment again and again: nobody is being watched. Restart the camera."},
    {SightFault::kTooDark, Trouble::kTooDark,
     "The picture is too dark to see anybody: nobody is being watched. Switch a light on, and look whether something "
     "covers the lens."},
    {SightFault::kCovered, Trouble::kLensCovered,
     "Something covers the camera's lens: nobody is being watched. Take it away."},
    {SightFault::kOutOfFocus, Trouble::kOutOfFocus,
     "The picture is out of focus: people are not seen reliably. Clean the lens, or focus the camera."},
    {SightFault::kMoved, Trouble::kCameraMoved,
     "The camera has been moved since the floor was calibrated: beds and falls are looked for in wrong places. Put it "
     "back, or check the floor points."},
}};

}  // namespace

/// Jobs hold a share of it, since a disk may keep one for ever.
struct SightWatch::State : std::enable_shared_from_this<State> {
  explicit State(std::filesystem::path the_directory) : directory(std::move(the_directory)) {}

  void look(const Seen& seen);
  void apply(std::uint32_t rotation);
  void report(Sight::Time now);
  void keep(Sight::Time now);
  void load();
  void save(const StoredRoom& room);

  const std::filesystem::path directory;
  SideThread looking{kMostWaiting};
  SideThread storing{kMostWaiting};

  mutable std::mutex mutex;  ///< for what follows
  Wanted wanted;
  bool accepted = false;
  bool loaded = false;               ///< the disk has answered
  std::optional<StoredRoom> stored;  ///< what stands there
  SightPictures pictures;

  // The looking thread's alone.
  Sight sight;
  std::string floor;                 ///< that the reference belongs to; empty: none is wanted yet
  std::string taken;                 ///< when it was
  bool has_failed = false;           ///< the last picture; told once
  std::optional<Sight::Time> tried;  ///< to store it
  std::array<bool, kSightFaults.size()> told{};
};

void SightWatch::State::look(const Seen& seen) {
  try {
    apply(seen.rotation);
    const bool had_reference = sight.reference().has_value();
    sight.take(lookAt(seen.frame->view()), seen.times);
    if (sight.reference() && !had_reference) taken = utcText(ticker_clock::now());
    report(seen.times.taken);
    keep(seen.times.taken);
    has_failed = false;
  } catch (const std::exception& error) {
    if (!std::exchange(has_failed, true)) syslog(LOG_ERR, "whether the camera sees is not known: %s", error.what());
  }
  const std::scoped_lock lock(mutex);
  pictures.edges_then.reset();
  if (sight.reference()) pictures.edges_then = sight.reference()->edges;
  pictures.edges_now = sight.edgesNow();
  pictures.shade_then = sight.shadeThen();
  pictures.shade_now = sight.shadeNow();
}

/// Takes over which floor is calibrated, once that has come to rest, and that the camera may hang as it does.
void SightWatch::State::apply(std::uint32_t rotation) {
  const std::scoped_lock lock(mutex);
  if (!loaded || wanted.floor.empty() || ++wanted.pictures < kSettled) return;
  wanted.pictures = kSettled;
  const bool is_new = wanted.floor != floor;
  if (!is_new && !accepted) return;
  sight.hideCells(cellsOf(wanted.beds, rotation));
  const bool is_known = !accepted && stored && stored->floor == wanted.floor;
  sight.setReference(is_known ? std::optional(stored->room) : std::nullopt);
  floor = wanted.floor;
  taken = is_known ? stored->taken : "";
  accepted = false;
}

void SightWatch::State::report(Sight::Time now) {
  for (const Words& words : kWords) {
    bool& is_told = told.at(static_cast<std::size_t>(words.fault));
    const auto since = sight.since(words.fault);
    if (since.has_value() == is_told) continue;
    is_told = since.has_value();
    if (since) {
      reportTrouble(words.trouble, words.text, ticker_clock::now() - (now - *since));
      syslog(LOG_ERR, "%s", words.text);
    } else {
      endTrouble(words.trouble);
      syslog(LOG_INFO, "over: %s", nameOf(words.trouble));
    }
  }
}

/// A disk that has failed is tried again.
void SightWatch::State::keep(Sight::Time now) {
  if (!sight.reference() || (tried && now - *tried < kSaveAgain)) return;
  {
    const std::scoped_lock lock(mutex);
    if (stored && stored->taken == taken) return;
  }
  tried = now;
  storing.post([self = shared_from_this(), room = StoredRoom{floor, taken, *sight.reference()}] { self->save(room); });
}

void SightWatch::State::save(const StoredRoom& room) {
  try {
    saveRoom(room, directory);
    const std::scoped_lock lock(mutex);
    stored = room;
  } catch (const std::exception& error) {
    syslog(LOG_ERR, "after a restart nobody will know whether the camera has been moved: %s", error.what());
  }
}

void SightWatch::State::load() {
  std::optional<StoredRoom> room;
  try {
    room = loadRoom(directory);
  } catch (const std::exception& error) {
    syslog(LOG_ERR, "%s: whether the camera was moved before this start is not known", error.what());
  }
  const std::scoped_lock lock(mutex);
  stored = std::move(room);
  loaded = true;
}

SightWatch::SightWatch(std::filesystem::path directory) : m_state(std::make_shared<State>(std::move(directory))) {}

void SightWatch::look(Seen seen) {
  if (!std::exchange(m_has_begun, true)) m_state->storing.post([state = m_state] { state->load(); });
  m_state->looking.post([state = m_state, seen = std::move(seen)] { state->look(seen); });
}

void SightWatch::setParameters(const Parameters& parameters) {
  Wanted wanted = readParameters(parameters);
  const std::scoped_lock lock(m_state->mutex);
  if (wanted.floor == m_state->wanted.floor) wanted.pictures = m_state->wanted.pictures;
  m_state->wanted = std::move(wanted);
}

void SightWatch::accept() {
  const std::scoped_lock lock(m_state->mutex);
  m_state->accepted = true;
}

SightPictures SightWatch::pictures() const {
  const std::scoped_lock lock(m_state->mutex);
  return m_state->pictures;
}

bool SightWatch::settle(std::chrono::milliseconds patience) {
  return m_state->looking.settle(patience) && m_state->storing.settle(patience);
}

SightWatch* sightWatch() {
  static SightWatch* const the_watch = []() -> SightWatch* {
    try {
      return ticker_clock::isReplay() ? nullptr : new SightWatch(stateDirectory());
    } catch (const std::exception& error) {
      syslog(LOG_ERR, "whether the camera sees is not known: %s", error.what());
      return nullptr;
    }
  }();
  return the_watch;
}

}  // namespace workstation
