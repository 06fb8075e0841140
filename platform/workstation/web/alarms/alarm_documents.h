// Alarms as the page and scripts get them (docs/alarms.md): JSON in one line.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/workstation/alarms/alarm_desk.h"
#include "platform/workstation/outside/post_office.h"

namespace workstation {

/// All that is known.
std::string alarmsDocument(const AlarmsNow& now, const std::vector<ReceiverStatus>& receivers);
/// The list of receivers in it.
std::string receiversDocument(const std::vector<ReceiverStatus>& receivers);
/// One alarm; with `stored`, whether the answer that was just given is on disk.
std::string alarmDocument(const AlarmView& view, std::optional<bool> stored = std::nullopt);
/// "null" for none.
std::string pauseDocument(const std::optional<Pause>& pause);
std::string testDocument(const AlarmEntry& test);

}  // namespace workstation
