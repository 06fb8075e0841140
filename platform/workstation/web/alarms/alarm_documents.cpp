#include "platform/workstation/web/alarms/alarm_documents.h"

#include <nlohmann/json.hpp>

#include "platform/workstation/system/utc_text.h"
#include "platform/workstation/web/access/forms.h"

namespace workstation {
namespace {

using nlohmann::ordered_json;

ordered_json timeOrNull(const std::optional<TimeStamp>& time) {
  return time ? ordered_json(utcText(*time)) : ordered_json();
}

ordered_json answersOf(const Alarm& alarm) {
  ordered_json answers = ordered_json::array();
  for (const Answer& answer : alarm.answers) {
    answers.push_back({{"what", nameOf(answer.what)},
                       {"by", answer.by},
                       {"time", utcText(answer.time)},
                       {"reason", answer.reason},
                       {"stored", answer.stored}});
  }
  return answers;
}

ordered_json jsonOf(const AlarmView& view) {
  const Alarm& alarm = view.alarm;
  const AlarmState state = alarm.state();
  ordered_json json = {{"id", alarm.id},
                       {"seq", alarm.seq},
                       {"run", alarm.run},
                       {"event", alarm.event},
                       {"kind", nameOf(alarm.kind)},
                       {"began", utcText(alarm.began)},
                       {"ended", timeOrNull(alarm.ended)},
                       {"state", nameOf(state)},
                       {"level", alarm.level},
                       {"again", alarm.wasCalledAgain()},
                       {"called", timeOrNull(alarm.called)},
                       {"answers", answersOf(alarm)},
                       {"next", timeOrNull(view.next)}};
  if (state == AlarmState::kHeld) json["held_why"] = alarm.held_why;
  if (alarm.closed_at_start) json["closed_at_start"] = true;
  return json;
}

ordered_json jsonOf(const std::optional<Pause>& pause) {
  if (!pause) return nullptr;
  return {
      {"until", utcText(pause->until)}, {"by", pause->by}, {"since", utcText(pause->since)}, {"reason", pause->reason}};
}

ordered_json jsonOf(const AlarmEntry& test) {
  return {{"number", test.number}, {"time", utcText(test.time)}, {"by", test.by}};
}

ordered_json jsonOf(const ReceiverStatus& receiver) {
  constexpr const char* kStates[] = {"unknown", "reached", "not-reached"};
  ordered_json json = {{"name", receiver.name},
                       {"kind", receiver.kind},
                       {"level", receiver.level},
                       {"state", kStates[static_cast<std::size_t>(receiver.state)]},
                       {"waits", receiver.waits},
                       {"status", receiver.words},
                       {"time", timeOrNull(receiver.time)},
                       {"since", timeOrNull(receiver.since)},
                       {"test", nullptr}};
  if (receiver.test) {
    const auto& [number, is_taken, words] = *receiver.test;
    json["test"] = {{"number", number}, {"reached", is_taken}, {"status", words}};
  }
  return json;
}

ordered_json jsonOf(const std::vector<ReceiverStatus>& receivers) {
  ordered_json list = ordered_json::array();
  for (const ReceiverStatus& receiver : receivers) list.push_back(jsonOf(receiver));
  return list;
}

}  // namespace

std::string alarmsDocument(const AlarmsNow& now, const std::vector<ReceiverStatus>& receivers) {
  ordered_json alarms = ordered_json::array();
  for (const AlarmView& view : now.alarms) alarms.push_back(jsonOf(view));
  return oneLine(
      {{"time", utcText(now.time)},
       {"run", now.run},
       {"alarms", alarms},
       {"pause", jsonOf(now.pause)},
       {"called", {{"test", now.test ? jsonOf(*now.test) : ordered_json()}, {"receivers", jsonOf(receivers)}}}});
}

std::string receiversDocument(const std::vector<ReceiverStatus>& receivers) { return oneLine(jsonOf(receivers)); }

std::string alarmDocument(const AlarmView& view, std::optional<bool> stored) {
  ordered_json json = jsonOf(view);
  if (stored) json["stored"] = *stored;
  return oneLine(json);
}

std::string pauseDocument(const std::optional<Pause>& pause) { return oneLine(jsonOf(pause)); }

std::string testDocument(const AlarmEntry& test) { return oneLine(jsonOf(test)); }

}  // namespace workstation
