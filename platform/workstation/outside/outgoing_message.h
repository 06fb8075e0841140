// What receivers get: one JSON object for each number (docs/alarms.md), and what proves that it comes from here.
#pragma once

#include <cstdint>
#include <string>

#include "platform/workstation/alarms/alarm_desk.h"
#include "platform/workstation/outside/sender.h"

namespace workstation {

/// `previous`: the number of the message before it to the same receiver, 0 for none. Made of what does not change any
/// more, so that a restart makes the same bytes.
OutgoingMessage messageOf(const AlarmDesk::Outgoing& outgoing, std::uint64_t previous);

/// HMAC-SHA256 of "TIMESTAMP.BODY", in hexadecimal digits.
std::string signatureOf(const std::string& secret, const std::string& timestamp, const std::string& body);

}  // namespace workstation
