#include "platform/workstation/trace/trace_reader.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <utility>

namespace workstation {
namespace {

using nlohmann::json;

constexpr int kVersion = 1;
constexpr int kUnknownBody = -1;
constexpr int kDeepest = 16;                   // a trace's objects and lists lie 6 deep
constexpr std::size_t kLongestList = 65536;    // entries: with a long patience each missing person is one
constexpr std::size_t kMostBodies = 1024;      // of a cycle; four runs find twenty each
constexpr std::size_t kLongestText = 200;      // bytes; names go to a terminal as they stand
constexpr std::size_t kLongestSetting = 4096;  // what the parameter store takes
constexpr double kLargest = 1e9;               // pixels and the like
constexpr double kLongestTrace_s = 1e10;
constexpr std::int64_t kMostNumber = std::int64_t{1} << 53;
constexpr int kMostCount = std::numeric_limits<int>::max();

[[noreturn]] void refuse(const std::string& wrong, const std::string& allowed) {
  throw std::runtime_error(wrong + "; allowed is " + allowed);
}

/// A value as it stands in the line, cut to a length that fits one.
std::string shown(const json& value) {
  constexpr std::size_t kMost = 40;
  if (value.is_structured()) return value.is_object() ? "an object" : "a list";
  std::string text = value.dump(-1, ' ', true, json::error_handler_t::replace);
  if (text.size() > kMost) text = text.substr(0, kMost) + "...";
  return text;
}

bool isPlain(const std::string& text, std::size_t longest) {
  for (const char c : text) {
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f) return false;
  }
  return text.size() <= longest;
}

bool isNumber(const json& value, double most) { return value.is_number() && std::abs(value.get<double>()) <= most; }

/// The keys of one object. Null counts as absent: that is how a number without a value is written.
class Fields {
 public:
  Fields(const json& object, std::string path) : m_object(object), m_path(std::move(path)) {
    if (!object.is_object()) refuse(m_path + " is " + shown(object), "an object");
  }

  [[nodiscard]] std::string pathOf(const std::string& key) const { return m_path.empty() ? key : m_path + "." + key; }
  [[nodiscard]] bool has(const char* key) const { return m_object.get().contains(key); }

  [[nodiscard]] std::vector<std::string> names() const {
    std::vector<std::string> names;
    for (const auto& [name, value] : m_object.get().items()) {
      if (!isPlain(name, kLongestText)) refuse(m_path + " has the name " + shown(name), "a text of one line");
      names.push_back(name);
    }
    return names;
  }

  /// Of what is only told: absent when it is no number of a trace.
  [[nodiscard]] std::optional<double> number(const char* key) const {
    const json* value = find(key);
    return value != nullptr && isNumber(*value, kLargest) ? std::optional(value->get<double>()) : std::nullopt;
  }

  [[nodiscard]] double needNumber(const char* key, double most) const {
    const json* value = find(key);
    if (value == nullptr || !isNumber(*value, most)) wrong(key, "a number of at most " + shown(json(most)));
    return value->get<double>();
  }

  /// As number(): a count that is only told, 0 when absent.
  [[nodiscard]] int told(const char* key) const {
    const json* value = find(key);
    const bool fits = value != nullptr && value->is_number_unsigned() && value->get<std::uint64_t>() <= kMostCount;
    return fits ? value->get<int>() : 0;
  }

  [[nodiscard]] std::optional<std::int64_t> whole(const char* key, std::int64_t most = kMostCount) const {
    const json* value = find(key);
    if (value == nullptr) return std::nullopt;
    const bool fits = value->is_number_unsigned() && value->get<std::uint64_t>() <= static_cast<std::uint64_t>(most);
    if (!fits) wrong(key, "a whole number from 0 to " + std::to_string(most));
    return value->get<std::int64_t>();
  }

  [[nodiscard]] std::optional<int> count(const char* key) const {
    const auto value = whole(key);
    return value ? std::optional(static_cast<int>(*value)) : std::nullopt;
  }

  /// A body's number in its cycle: kUnknownBody where the program could not tell which it was.
  [[nodiscard]] std::optional<int> body(const char* key) const {
    const json* value = find(key);
    return value != nullptr && *value == kUnknownBody ? std::optional(kUnknownBody) : count(key);
  }

  [[nodiscard]] std::optional<std::string> text(const char* key, std::size_t longest = kLongestText) const {
    const json* value = find(key);
    if (value == nullptr) return std::nullopt;
    const auto* text = value->get_ptr<const std::string*>();
    if (text == nullptr || !isPlain(*text, longest)) wrong(key, "a text of one line");
    return *text;
  }

  [[nodiscard]] std::optional<bool> truth(const char* key) const {
    const json* value = find(key);
    if (value == nullptr) return std::nullopt;
    if (!value->is_boolean()) wrong(key, "true or false");
    return value->get<bool>();
  }

  /// Absent is empty.
  [[nodiscard]] const json& list(const char* key, std::size_t most = kLongestList) const {
    static const json& none = *new json(json::array());  // never destroyed: a side thread may read to the end
    const json* value = find(key);
    if (value == nullptr) return none;
    if (!value->is_array() || value->size() > most) {
      wrong(key, "a list of at most " + std::to_string(most) + " entries");
    }
    return *value;
  }

  template <typename Value>
  Value need(std::optional<Value> value, const char* key) const {
    if (!value) refuse(pathOf(key) + " is missing", "a trace of which no key was taken away");
    return *std::move(value);
  }

  [[nodiscard]] std::optional<Fields> object(const char* key) const {
    const json* value = find(key);
    return value == nullptr ? std::nullopt : std::optional(Fields(*value, pathOf(key)));
  }

  /// What `read` makes of each entry of a list of objects.
  template <typename Read>
  auto each(const char* key, Read read, std::size_t most = kLongestList) const {
    std::vector<decltype(read(*this))> entries;
    std::size_t index = 0;
    for (const json& entry : list(key, most)) {
      entries.push_back(read(Fields(entry, pathOf(key) + "[" + std::to_string(index++) + "]")));
    }
    return entries;
  }

  /// The numbers of a list that has so many.
  [[nodiscard]] std::vector<double> numbers(const char* key, std::size_t size) const {
    std::vector<double> values;
    for (const json& value : list(key)) {
      if (isNumber(value, kLargest)) values.push_back(value.get<double>());
    }
    if (values.size() != size || list(key).size() != size) wrong(key, "a list of " + std::to_string(size) + " numbers");
    return values;
  }

  [[noreturn]] void wrong(const char* key, const std::string& allowed) const {
    const json* value = find(key);
    refuse(pathOf(key) + " is " + (value == nullptr ? "missing" : shown(*value)), allowed);
  }

 private:
  [[nodiscard]] const json* find(const char* key) const {
    const auto found = m_object.get().find(key);
    return found == m_object.get().end() || found->is_null() ? nullptr : &*found;
  }

  std::reference_wrapper<const json> m_object;
  std::string m_path;
};

int needCount(const Fields& from, const char* key) { return from.need(from.count(key), key); }

void checkRotation(const Fields& from, int rotation) {
  if (rotation % 90 != 0 || rotation > 270) from.wrong("rotation", "0, 90, 180 or 270");
}

TraceHeader readHeader(const Fields& line) {
  const auto version = line.whole("version");
  if (version != kVersion) line.wrong("version", std::to_string(kVersion) + "; make the trace anew");
  const std::vector<double> picture = line.numbers("picture", 2);
  constexpr double kLongestSide = 8192;
  if (!(picture[0] >= 1 && picture[0] <= kLongestSide && picture[1] >= 1 && picture[1] <= kLongestSide)) {
    line.wrong("picture", "a width and a height from 1 to 8192");
  }
  if (const auto rotation = line.count("rotation")) checkRotation(line, *rotation);
  constexpr double kLongestFocal_um = 1e6;
  const auto focal = line.number("focal_length_um");
  if (focal && !(*focal >= 1 && *focal <= kLongestFocal_um))
    line.wrong("focal_length_um", "a number from 1 to 1000000");
  return {line.text("program").value_or(""), static_cast<int>(picture[0]), static_cast<int>(picture[1]),
          line.need(line.truth("replay"), "replay"), needCount(line, "period_ms")};
}

TraceSettings readSettings(const Fields& line) {
  const Fields parameters = line.need(line.object("parameters"), "parameters");
  TraceSettings settings;
  for (const std::string& name : parameters.names()) {
    settings.parameters[name] = parameters.need(parameters.text(name.c_str(), kLongestSetting), name.c_str());
  }
  return settings;
}

TraceRule readRule(const Fields& from) {
  return {from.need(from.text("rule"), "rule"), from.number("value"), from.number("limit")};
}

/// All or none: a place that no picture has makes the others doubtful, too.
TracePoints readPoints(const Fields& from) {
  TracePoints points;
  bool are_known = true;
  for (const json& point : from.list("points")) {
    if (!point.is_array() || point.size() != 3) break;
    const auto number = [](const json& one) { return isNumber(one, kLargest); };
    are_known = are_known && std::all_of(point.begin(), point.end(), number);
    if (are_known) points.push_back({{point[0].get<double>(), point[1].get<double>()}, point[2].get<double>()});
    if (!are_known) points.emplace_back();
  }
  if (from.has("points") && points.size() != kTraceParts) from.wrong("points", "a list of 17 places [x, y, score]");
  return are_known ? points : TracePoints();
}

TracePose readPose(const Fields& from, const char* number) {
  TracePose pose;
  pose.n = needCount(from, number);
  pose.score = from.number("score");
  pose.points = readPoints(from);
  pose.looked_for = from.has("confirmation");
  pose.confirmation = from.number("confirmation");
  if (const auto dropped = from.object("dropped")) pose.dropped = readRule(*dropped);
  return pose;
}

TraceRun readRun(const Fields& from, std::size_t most_poses) {
  TraceRun run;
  run.rotation = needCount(from, "rotation");
  checkRotation(from, run.rotation);
  run.poses = from.each(
      "poses", [](const Fields& one) { return readPose(one, "n"); }, most_poses);
  return run;
}

TraceFusion readFusion(const Fields& from) {
  const std::vector<double> of = from.numbers("of", 2);
  TraceFusion step{static_cast<int>(of[0]), static_cast<int>(of[1]), from.number("distance"), {}, -1};
  if (from.has("made")) {
    step.made = readPose(from, "made");
  } else {
    step.dropped = from.need(from.body("dropped"), "dropped");
  }
  return step;
}

TraceCovered readCovered(const Fields& from) {
  return {from.need(from.body("n"), "n"), from.need(from.body("by"), "by"), from.number("share"), from.number("limit")};
}

TraceTrack readTrack(const Fields& from) {
  return {needCount(from, "id"), from.body("n"), from.number("distance"), from.told("missing"), from.told("age")};
}

TraceAreaDistance readArea(const Fields& from) {
  return {from.need(from.text("kind"), "kind"), needCount(from, "area"), from.number("distance")};
}

/// What is known once there are findings enough.
void readJudgement(const Fields& from, TracePerson& person) {
  person.activity = from.text("activity").value_or("unknown");
  person.off = from.number("off");
  person.limit = from.number("limit");
  person.metre = from.number("metre");
  person.torso_to_legs = from.number("torso_to_legs");
  person.torso_to_legs_limit = from.number("torso_to_legs_limit");
  person.movement = from.number("movement");
  person.movement_limit = from.number("movement_limit");
  person.near_edge = from.truth("near_edge").value_or(false);
  person.lying_for = from.told("lying_for");
  person.needed = from.told("needed");
}

/// Absent when it is no box.
std::vector<double> readBox(const Fields& from) {
  std::vector<double> box;
  for (const json& side : from.list("box")) {
    if (isNumber(side, kLargest)) box.push_back(side.get<double>());
  }
  return box.size() == 4 ? box : std::vector<double>();
}

TracePerson readPerson(const Fields& from) {
  TracePerson person;
  person.id = needCount(from, "id");
  person.n = from.body("n");
  const std::vector<double> place = from.numbers("place", 2);
  person.place = {place[0], place[1]};
  person.box = readBox(from);
  person.footing = from.need(from.text("footing"), "footing");
  person.area = from.told("area");
  person.areas = from.each("areas", readArea);
  person.findings = from.told("findings");
  person.depth = from.told("depth");
  readJudgement(from, person);
  if (const auto against = from.object("against")) {
    person.against = {against->need(against->text("rule"), "rule"), needCount(*against, "back")};
  }
  return person;
}

TraceBed readBed(const Fields& from) {
  return {needCount(from, "area"), from.need(from.truth("occupied"), "occupied"), from.count("by")};
}

TraceEventState readState(const Fields& from) {
  return {from.need(from.text("name"), "name"), from.need(from.truth("active"), "active"),
          from.truth("changed").value_or(false)};
}

void readPeople(const Fields& line, TraceCycle& cycle) {
  cycle.tracks = line.each("tracks", readTrack);
  for (const json& id : line.list("forgotten")) {
    if (!id.is_number_unsigned() || id.get<std::uint64_t>() > kMostCount)
      line.wrong("forgotten", "a list of whole numbers");
    cycle.forgotten.push_back(id.get<int>());
  }
  cycle.people = line.each("people", readPerson);
  cycle.beds = line.each("beds", readBed);
  if (const auto empty = line.object("out_of_bed")) {
    cycle.empty_cycles = empty->told("cycles");
    cycle.empty_limit = empty->told("limit");
  }
  cycle.fallen = line.count("fallen");
  cycle.events = line.each("events", readState);
}

void readBodies(const Fields& line, TraceCycle& cycle) {
  constexpr std::size_t kMostRuns = 16;
  constexpr std::size_t kMostPoses = kMostBodies / kMostRuns;
  cycle.runs = line.each(
      "runs", [](const Fields& one) { return readRun(one, kMostPoses); }, kMostRuns);
  cycle.fusion = line.each("fusion", readFusion, kMostBodies);
  const auto left_out = [](const Fields& one) { return TraceLeftOut{one.need(one.body("n"), "n"), readRule(one)}; };
  cycle.filtered = line.each("filtered", left_out, kMostBodies);
  cycle.suppressed = line.each("suppressed", readCovered, kMostBodies);
}

TraceCycle readCycle(const Fields& line) {
  TraceCycle cycle;
  cycle.number = static_cast<std::uint64_t>(line.need(line.whole("number", kMostNumber), "number"));
  cycle.ns = line.need(line.whole("ns", std::numeric_limits<std::int64_t>::max()), "ns");
  cycle.t = line.needNumber("t", kLongestTrace_s);
  cycle.failed = line.truth("failed").value_or(false);
  if (cycle.failed) return cycle;
  cycle.nobody_asked = line.has("confirmation");
  readBodies(line, cycle);
  readPeople(line, cycle);
  return cycle;
}

TraceEvent readEvent(const Fields& line) {
  return {static_cast<std::uint64_t>(line.need(line.whole("seq", kMostNumber), "seq")), line.text("run").value_or(""),
          line.need(line.whole("ns", std::numeric_limits<std::int64_t>::max()), "ns"),
          line.need(line.text("name"), "name"), line.need(line.truth("active"), "active")};
}

TraceWatching readWatching(const Fields& line) {
  return {line.need(line.whole("ns", std::numeric_limits<std::int64_t>::max()), "ns"),
          line.need(line.truth("active"), "active"), line.text("why").value_or("")};
}

/// What is nested deeper is no trace's; it is refused before it takes memory.
json parse(std::string_view text) {
  bool too_deep = false;
  json line = json::parse(
      text,
      [&too_deep](int depth, json::parse_event_t, json&) {
        too_deep = too_deep || depth > kDeepest;
        return !too_deep;
      },
      false);
  if (too_deep) refuse("is nested too deep", "what a trace holds");
  if (line.is_discarded()) refuse("is not valid JSON", "one JSON object a line");
  if (!line.is_object()) refuse("is no object", "one JSON object a line");
  return line;
}

std::string at(const std::filesystem::path& file, std::uint64_t line) {
  return file.string() + " line " + std::to_string(line) + ": ";
}

}  // namespace

TraceLine parseTraceLine(std::string_view text) {
  const json object = parse(text);
  const Fields line(object, "");
  const std::string kind = line.need(line.text("kind"), "kind");
  if (kind == "trace") return readHeader(line);
  if (kind == "settings") return readSettings(line);
  if (kind == "cycle") return readCycle(line);
  if (kind == "event") return readEvent(line);
  if (kind == "watching") return readWatching(line);
  if (kind == "missing") return TraceMissing{line.whole("lines", kMostNumber).value_or(0)};
  if (kind == "end") return TraceEnd{};
  return std::monostate{};
}

TraceReader::TraceReader(const std::filesystem::path& file) : m_path(file) {
  std::error_code error;
  if (!std::filesystem::exists(file, error)) throw TraceMistake(file.string() + ": there is no such file");
  if (!std::filesystem::is_regular_file(file, error)) throw TraceMistake(file.string() + ": is not a file");
  m_file.open(file, std::ios::binary);
  if (!m_file) throw TraceMistake(file.string() + ": cannot be read");
  const int first = m_file.peek();
  if (file.extension() == ".jsonl" || first == '{' || first == std::ifstream::traits_type::eof()) return;
  throw TraceMistake(file.string() + ": is no trace; make one: ./run replay " + file.string() + " --trace FILE");
}

/// A last line without its line feed that is whole JSON has only lost that.
std::optional<TraceLine> TraceReader::next() {
  std::string text;
  const bool ended = readLine(text);
  if (!ended && text.empty()) return std::nullopt;
  try {
    const TraceLine line = parseTraceLine(text);
    checkOrder(line);
    return line;
  } catch (const std::runtime_error& mistake) {
    if (ended || !m_header || json::accept(text)) throw TraceMistake(at(m_path, m_line) + mistake.what());
    m_cut_off = true;
    return std::nullopt;
  }
}

/// Whether the line ends with its line feed.
bool TraceReader::readLine(std::string& line) {
  using Traits = std::ifstream::traits_type;
  ++m_line;
  int c = 0;
  while ((c = m_file.rdbuf()->sbumpc()) != Traits::eof() && c != '\n') {
    line += static_cast<char>(c);
    if (line.size() > kMostTraceLineBytes) {
      throw TraceMistake(at(m_path, m_line) + "is too long; allowed are lines of 4 MiB");
    }
  }
  return c == '\n';
}

/// A live clock may be set back; cycles are counted on all the same.
void TraceReader::checkOrder(const TraceLine& line) {
  if (const auto* header = std::get_if<TraceHeader>(&line)) {
    if (m_header) refuse("is a second header", "one, in the first line");
    m_header = *header;
    return;
  }
  if (!m_header) refuse("is no header", "a trace, which begins with {\"kind\": \"trace\", \"version\": 1, ...}");
  const auto* cycle = std::get_if<TraceCycle>(&line);
  m_has_settings = m_has_settings || std::holds_alternative<TraceSettings>(line);
  if (cycle == nullptr) return;
  if (!m_has_settings) refuse("a cycle comes before the settings", "a trace whose second line tells them");
  if (cycle->number <= m_number) {
    refuse("cycle " + std::to_string(cycle->number) + " comes after cycle " + std::to_string(m_number),
           "a trace whose lines stand in their order");
  }
  if (m_header->replay && m_number > 0 && cycle->ns <= m_ns) {
    refuse("ns is " + std::to_string(cycle->ns) + " after " + std::to_string(m_ns), "time that goes on");
  }
  m_number = cycle->number;
  m_ns = cycle->ns;
}

}  // namespace workstation
