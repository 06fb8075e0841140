// A trace (docs/trace.md) line by line, as plain structures. Each takes what a line says and nothing else of the
// program: who explains a trace needs no other part of what wrote it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace workstation {

/// Places and distances are pixels of the analysis picture, x to the right, y down.
struct TracePlace {
  double x = 0;
  double y = 0;
};

struct TracePoint {
  TracePlace at;
  double score = 0;
};

inline constexpr std::size_t kTraceParts = 17;
/// Of a body, in the order of the header's `parts`; empty when the line has none.
using TracePoints = std::vector<TracePoint>;

struct TraceHeader {
  std::string program;
  int width = 0;
  int height = 0;
  bool replay = false;
  int period_ms = 0;
};

struct TraceSettings {
  std::map<std::string, std::string> parameters;
};

/// A rule that left somebody out, with the numbers that it compared where it has any.
struct TraceRule {
  std::string rule;
  std::optional<double> value;
  std::optional<double> limit;
};

struct TracePose {
  int n = 0;
  std::optional<double> score;
  TracePoints points;
  bool looked_for = false;             ///< the detector was asked
  std::optional<double> confirmation;  ///< its best score; none when it saw nobody
  std::optional<TraceRule> dropped;
};

struct TraceRun {
  int rotation = 0;
  std::vector<TracePose> poses;
};

struct TraceFusion {
  int first = 0;
  int second = 0;
  std::optional<double> distance;
  std::optional<TracePose> made;  ///< of both; otherwise one of them was dropped
  int dropped = -1;
};

struct TraceLeftOut {
  int n = 0;
  TraceRule why;
};

struct TraceCovered {
  int n = 0;
  int by = 0;
  std::optional<double> share;
  std::optional<double> limit;
};

struct TraceTrack {
  int id = 0;
  std::optional<int> n;
  std::optional<double> distance;
  int missing = 0;  ///< cycles in a row
  int age = 0;      ///< cycles since the first, that and this one included; 0 when not known
};

struct TraceAreaDistance {
  std::string kind;  ///< "bed" or "exclusion"
  int area = 0;
  std::optional<double> distance;  ///< from the outline, negative inside
};

/// What stands against a fall, so many findings ago.
struct TraceAgainst {
  std::string rule;
  int back = 0;
};

struct TracePerson {
  int id = 0;
  std::optional<int> n;
  TracePlace place;
  std::vector<double> box;  ///< left, top, right, bottom; empty where it is not told
  std::string footing;
  int area = 0;
  std::vector<TraceAreaDistance> areas;
  int findings = 0;
  int depth = 0;
  std::string activity = "unknown";
  std::optional<double> off, limit, metre;
  std::optional<double> torso_to_legs, torso_to_legs_limit;
  std::optional<double> movement, movement_limit;  ///< thousandths of the body's height a second
  bool near_edge = false;
  int lying_for = 0;
  int needed = 0;
  std::optional<TraceAgainst> against;
};

struct TraceBed {
  int area = 0;
  bool occupied = false;
  std::optional<int> by;
};

struct TraceEventState {
  std::string name;
  bool active = false;
  bool changed = false;
};

struct TraceCycle {
  std::uint64_t number = 0;
  std::int64_t ns = 0;
  double t = 0;  ///< seconds
  bool failed = false;
  bool nobody_asked = false;  ///< there was no picture to confirm people in: all count as confirmed
  std::vector<TraceRun> runs;
  std::vector<TraceFusion> fusion;
  std::vector<TraceLeftOut> filtered;
  std::vector<TraceCovered> suppressed;
  std::vector<TraceTrack> tracks;
  std::vector<int> forgotten;
  std::vector<TracePerson> people;
  std::vector<TraceBed> beds;
  int empty_cycles = 0;
  int empty_limit = 0;
  std::optional<int> fallen;
  std::vector<TraceEventState> events;
};

struct TraceEvent {
  std::uint64_t seq = 0;
  std::string run;
  std::int64_t ns = 0;
  std::string name;
  bool active = false;
};

/// From then on somebody was watched, or nobody.
struct TraceWatching {
  std::int64_t ns = 0;
  bool active = false;
  std::string why;  ///< the trouble's name; empty when the run ended
};

/// So many lines are missing here.
struct TraceMissing {
  std::int64_t lines = 0;
};

/// The run ended in order.
struct TraceEnd {};

/// What a line holds; std::monostate for a kind that this reader does not know.
using TraceLine = std::variant<std::monostate, TraceHeader, TraceSettings, TraceCycle, TraceEvent, TraceWatching,
                               TraceMissing, TraceEnd>;

/// Longer lines are no trace's: one of eighty people has 60 KB.
inline constexpr std::size_t kMostTraceLineBytes = std::size_t{4} << 20;

/// A number that is none, or that no trace has, counts as absent where it is only told. Throws std::runtime_error: what
/// is wrong and what is allowed, in one line without the place.
TraceLine parseTraceLine(std::string_view text);

/// A file that cannot be understood: "FILE line N: what is wrong; what is allowed".
class TraceMistake : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// One file from its beginning to its end, in memory that does not grow with it.
class TraceReader {
 public:
  /// Throws TraceMistake with one line when it cannot be read.
  explicit TraceReader(const std::filesystem::path& file);

  /// The next line; none at the end. Throws TraceMistake.
  std::optional<TraceLine> next();
  /// Whether the file ends in the middle of a line, as that of a run that was killed. Known at the end.
  bool isCutOff() const { return m_cut_off; }

 private:
  bool readLine(std::string& line);
  void checkOrder(const TraceLine& line);

  std::filesystem::path m_path;
  std::ifstream m_file;
  std::uint64_t m_line = 0;
  bool m_cut_off = false;
  std::optional<TraceHeader> m_header;
  bool m_has_settings = false;
  std::uint64_t m_number = 0;  ///< of the last cycle
  std::int64_t m_ns = 0;
};

}  // namespace workstation
