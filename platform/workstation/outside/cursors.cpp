#include "platform/workstation/outside/cursors.h"

#include <syslog.h>

#include <algorithm>
#include <exception>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <utility>

#include "platform/workstation/alarms/alarm_entry.h"
#include "platform/workstation/system/durable_file.h"
#include "platform/workstation/system/state_directory.h"

namespace workstation {
namespace {

using nlohmann::ordered_json;

constexpr const char* kFile = "receivers.json";
constexpr std::size_t kLargestFile = 1 << 20;
constexpr std::size_t kMostJobs = 4;

std::uint64_t numberIn(const ordered_json& object, const char* key) {
  const auto found = object.find(key);
  if (found == object.end() || !found->is_number_unsigned()) return 0;
  const auto number = found->get<std::uint64_t>();
  if (number > kMostAlarmNumber) throw std::runtime_error(std::string(key) + " is no number of an alarm's");
  return number;
}

}  // namespace

/// Shared with the thread, which may outlive the object.
struct Cursors::Core {
  std::mutex mutex;
  All all;
  std::optional<All> next;  ///< to be written
  bool is_lost = false;

  void write() {
    std::unique_lock lock(mutex);
    if (!next) return;
    const All written = *std::exchange(next, std::nullopt);
    lock.unlock();
    ordered_json document = ordered_json::object();
    for (const auto& [name, cursor] : written) document[name] = {{"begins", cursor.begins}, {"done", cursor.done}};
    try {
      replaceFile(stateDirectory() / kFile,
                  document.dump(-1, ' ', false, ordered_json::error_handler_t::replace) + "\n");
    } catch (const std::exception& error) {
      ::syslog(LOG_ERR, "what receivers have got is not stored, a restart sends it again: %s", error.what());
    }
  }
};

Cursors::Cursors() : m_core(std::make_shared<Core>()), m_side(kMostJobs) {}

std::uint64_t Cursors::load() {
  All all;
  bool is_lost = false;
  std::uint64_t highest = 0;
  try {
    const auto text = readFile(stateDirectory() / kFile, kLargestFile);
    const ordered_json document = text ? ordered_json::parse(*text, nullptr, false) : ordered_json::object();
    is_lost = !document.is_object();
    for (const auto& item : document.items()) {
      if (!item.value().is_object()) continue;
      const Cursor cursor{numberIn(item.value(), "begins"), numberIn(item.value(), "done")};
      all[item.key()] = cursor;
      highest = std::max({highest, cursor.begins, cursor.done});
    }
  } catch (const std::exception& error) {
    ::syslog(LOG_ERR, "what receivers have got is not known: %s", error.what());
    is_lost = true;
  }
  const std::scoped_lock lock(m_core->mutex);
  m_core->all = std::move(all);
  m_core->is_lost = is_lost;
  return highest;
}

std::optional<Cursor> Cursors::of(const std::string& name) const {
  const std::scoped_lock lock(m_core->mutex);
  const auto found = m_core->all.find(name);
  return found == m_core->all.end() ? std::nullopt : std::optional(found->second);
}

bool Cursors::isLost() const {
  const std::scoped_lock lock(m_core->mutex);
  return m_core->is_lost;
}

void Cursors::store(const All& all) {
  {
    const std::scoped_lock lock(m_core->mutex);
    m_core->all = all;
    m_core->next = all;
  }
  m_side.post([core = m_core] { core->write(); });
}

bool Cursors::drain(std::chrono::milliseconds patience) { return m_side.drain(patience); }

}  // namespace workstation
