#include "platform/workstation/outside/outgoing_message.h"

#include <glib.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "platform/support/owners.h"
#include "platform/workstation/system/utc_text.h"

namespace workstation {
namespace {

using nlohmann::ordered_json;
using Kind = AlarmEntry::Kind;

ordered_json alarmOf(const Alarm& alarm) {
  return {{"id", alarm.id},       {"seq", alarm.seq},           {"run", alarm.run},
          {"event", alarm.event}, {"kind", nameOf(alarm.kind)}, {"began", utcText(alarm.began)}};
}

void addDetails(ordered_json& message, const AlarmEntry& entry) {
  if (entry.kind == Kind::kCalled) {
    message["level"] = entry.level;
    message["repeat"] = entry.repeat;
  } else if (entry.kind == Kind::kAnswered) {
    message["answer"] = {{"what", nameOf(entry.what)}, {"by", entry.by}, {"reason", entry.reason}};
  } else if (entry.kind == Kind::kEnded) {
    message["closed_at_start"] = entry.closed_at_start;
  }
}

}  // namespace

OutgoingMessage messageOf(const AlarmDesk::Outgoing& outgoing, std::uint64_t previous) {
  const AlarmEntry& entry = outgoing.entry;
  ordered_json message = {{"number", entry.number},     {"run", entry.run},
                          {"previous", previous},       {"time", utcText(entry.time)},
                          {"what", nameOf(entry.kind)}, {"test", entry.kind == Kind::kTest}};
  addDetails(message, entry);
  message["alarm"] = outgoing.alarm ? alarmOf(*outgoing.alarm) : ordered_json();
  return {entry.number, message.dump(-1, ' ', false, ordered_json::error_handler_t::replace)};
}

std::string signatureOf(const std::string& secret, const std::string& timestamp, const std::string& body) {
  const std::string signed_text = timestamp + "." + body;
  const GLibPtr<gchar> digest(
      g_compute_hmac_for_data(G_CHECKSUM_SHA256, reinterpret_cast<const guchar*>(secret.data()), secret.size(),
                              reinterpret_cast<const guchar*>(signed_text.data()), signed_text.size()));
  return digest.get();
}

}  // namespace workstation
