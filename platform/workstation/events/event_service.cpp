// The camera's event system on a workstation: declarations and changes go to whoever watches, changes to standard
// output, and both to the journal in the state directory.
#include <axevent.h>
#include <syslog.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "platform/clock/clock.h"
#include "platform/support/owners.h"
#include "platform/workstation/events/event_recorder.h"
#include "platform/workstation/system/durable_file.h"
#include "platform/workstation/system/standard_output.h"
#include "platform/workstation/system/utc_text.h"

using workstation::EventRecord;
using workstation::EventRecorder;

namespace {

using EventValue = std::variant<gint, bool, gdouble, std::string>;

struct KeyValue {
  std::string key;
  std::string name_space;
  EventValue value;
  bool is_data = false;
  std::string value_nice_name;
};

struct DeclaredEvent {
  std::string event;
  std::string topic;
};

}  // namespace

struct _AXEventKeyValueSet {
  std::vector<KeyValue> entries;
};

struct _AXEvent {
  std::vector<KeyValue> entries;
  GDateTime* time;  ///< a reference of its own
};

struct _AXEventHandler {
  std::shared_ptr<EventRecorder> recorder;
  std::map<guint, DeclaredEvent> declarations;
  guint last_id = 0;
};

namespace {

constexpr const char* kStateKey = "active";

enum class Output { kText, kReplay, kJson };

Output outputFormat() {
  const char* value = std::getenv("VELMOR_OUTPUT");
  const std::string_view name = value == nullptr ? "" : value;
  return name == "json" ? Output::kJson : name == "replay" ? Output::kReplay : Output::kText;
}

/// "14:03:07", on the wall clock of the place where the program runs.
std::string localTime(GDateTime* time) {
  const GLibPtr<GDateTime> local(g_date_time_to_local(time));
  const GLibPtr<gchar> text(g_date_time_format(local.get(), "%H:%M:%S"));
  return text.get();
}

/// With a blank after each comma and colon, as people read it; no value has a line feed of its own.
std::string oneLine(const nlohmann::ordered_json& object) {
  const std::string lines = object.dump(0, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
  std::string line;
  for (const char c : lines) {
    if (c != '\n') {
      line += c;
    } else if (line.back() == ',') {
      line += ' ';
    }
  }
  return line;
}

void show(const EventRecord& record, GDateTime* time) {
  const char* const change = record.active ? "active" : "ended";
  const double seconds = workstation::secondsOf(record.time);
  switch (outputFormat()) {
    case Output::kJson:
      workstation::showLines(oneLine({{"t", seconds}, {"event", record.event}, {"active", record.active}}) + "\n");
      break;
    case Output::kReplay: {
      char stamp[32];
      std::snprintf(stamp, sizeof stamp, "%7.1f s  ", seconds);
      workstation::showLines(stamp + record.event + "  " + change + "\n");
      break;
    }
    case Output::kText:
      workstation::showLines(localTime(time) + "  " + record.event + "  " + change +
                             (record.closed_at_start ? " (left active by the run before)" : "") + "\n");
      break;
  }
}

/// For somebody who reads: what a run before left active has ended.
void showClosed(const EventRecord& record) {
  const GLibPtr<GDateTime> time(g_date_time_new_now_local());
  if (outputFormat() == Output::kText) show(record, time.get());
}

/// A declared or sent set's time on the process's clock. Live, the event brings its own.
TimeStamp clockTime(GDateTime* time) {
  if (ticker_clock::isReplay() || time == nullptr) {
    return ticker_clock::now();
  }
  const std::chrono::seconds seconds(g_date_time_to_unix(time));
  return TimeStamp(seconds + std::chrono::microseconds(g_date_time_get_microsecond(time)));
}

gboolean fail(GError** error, const std::string& message) {
  g_set_error_literal(error, g_quark_from_static_string("ax-event-error-quark"), 1, message.c_str());
  return FALSE;
}

KeyValue* findKey(std::vector<KeyValue>& entries, const gchar* key, const gchar* name_space) {
  const std::string_view space = name_space == nullptr ? "" : name_space;
  const auto found = std::find_if(entries.begin(), entries.end(),
                                  [&](const KeyValue& entry) { return entry.key == key && entry.name_space == space; });
  return found == entries.end() ? nullptr : &*found;
}

EventValue copyValue(gconstpointer value, AXEventValueType type) {
  switch (type) {
    case AX_VALUE_TYPE_INT:
      return *static_cast<const gint*>(value);
    case AX_VALUE_TYPE_BOOL:
      return *static_cast<const gboolean*>(value) != FALSE;
    case AX_VALUE_TYPE_DOUBLE:
      return *static_cast<const gdouble*>(value);
    case AX_VALUE_TYPE_STRING:
      return std::string(static_cast<const gchar*>(value));
  }
  throw std::runtime_error("there is no value type " + std::to_string(type));
}

/// The topic is the string values of "topic0", "topic1", ... in this order; the event's name is the nice name of the
/// last, or its value when it has none.
DeclaredEvent describe(std::vector<KeyValue> entries) {
  DeclaredEvent declared;
  for (int level = 0;; ++level) {
    const std::string key = "topic" + std::to_string(level);
    const KeyValue* entry = findKey(entries, key.c_str(), "tnsaxis");
    const auto* name = entry == nullptr ? nullptr : std::get_if<std::string>(&entry->value);
    if (name == nullptr) {
      break;
    }
    declared.topic += (level == 0 ? "tnsaxis:" : "/") + *name;
    declared.event = entry->value_nice_name.empty() ? *name : entry->value_nice_name;
  }
  const KeyValue* state = findKey(entries, kStateKey, nullptr);
  if (declared.topic.empty() || state == nullptr || !state->is_data || !std::holds_alternative<bool>(state->value)) {
    throw std::runtime_error("an event needs a topic \"topic0\" and a boolean data key \"active\"");
  }
  return declared;
}

/// Runs what may throw; an exception becomes the caller's GError. A caller who takes none would lose the reason: it is
/// logged.
template <typename Function>
gboolean guarded(GError** error, Function function) {
  try {
    function();
    return TRUE;
  } catch (const std::exception& exception) {
    if (error == nullptr) {
      syslog(LOG_ERR, "%s", exception.what());
    }
    return fail(error, exception.what());
  }
}

}  // namespace

AXEventHandler* ax_event_handler_new(void) {
  try {
    [[maybe_unused]] static const int at_exit = std::atexit(&EventRecorder::finishAll);
    workstation::takeFileLimitsAsFullDisks();
    workstation::keepStandardOutputFromBlocking();
    auto handler = std::make_unique<AXEventHandler>();
    handler->recorder = EventRecorder::begin(&showClosed);
    return handler.release();
  } catch (const std::exception& exception) {
    syslog(LOG_ERR, "%s", exception.what());
    return nullptr;
  }
}

void ax_event_handler_free(AXEventHandler* handler) {
  if (handler != nullptr) {
    handler->recorder->finish();
    delete handler;
  }
}

gboolean ax_event_handler_declare(AXEventHandler* handler, AXEventKeyValueSet* set, gboolean stateless,
                                  guint* declaration, AXDeclarationCompleteCallback callback, gpointer user_data,
                                  GError** error) {
  if (handler == nullptr || set == nullptr || declaration == nullptr) {
    return fail(error, "there is no handler, set or place for the declaration's id");
  }
  if (stateless != FALSE) {
    return fail(error, "only events with a state are offered");
  }
  const gboolean declared = guarded(error, [&] {
    const DeclaredEvent event = describe(set->entries);
    const EventRecord declaration_record{ticker_clock::now(), "declared", event.event, event.topic};
    if (!workstation::fitsIntoJournal(declaration_record)) {
      throw std::runtime_error("the event's names are too long");
    }
    handler->recorder->record(declaration_record);
    handler->declarations.emplace(++handler->last_id, event);
    *declaration = handler->last_id;
  });
  if (declared != FALSE && callback != nullptr) {
    callback(*declaration, user_data);
  }
  return declared;
}

gboolean ax_event_handler_undeclare(AXEventHandler* handler, guint declaration, GError** error) {
  if (handler == nullptr || !handler->declarations.contains(declaration)) {
    return fail(error, "no event is declared under the id " + std::to_string(declaration));
  }
  return guarded(error, [&] {
    const DeclaredEvent& event = handler->declarations.at(declaration);
    handler->recorder->record({ticker_clock::now(), "undeclared", event.event, event.topic});
    handler->declarations.erase(declaration);
  });
}

gboolean ax_event_handler_send_event(AXEventHandler* handler, guint declaration, AXEvent* event, GError** error) {
  if (handler == nullptr || event == nullptr || !handler->declarations.contains(declaration)) {
    return fail(error, "no event is declared under the id " + std::to_string(declaration));
  }
  const KeyValue* state = findKey(event->entries, kStateKey, nullptr);
  const bool* active = state == nullptr ? nullptr : std::get_if<bool>(&state->value);
  if (active == nullptr) {
    return fail(error, "the event has no boolean \"active\"");
  }
  return guarded(error, [&] {
    const DeclaredEvent& declared = handler->declarations.at(declaration);
    const EventRecord change{clockTime(event->time), "changed", declared.event, declared.topic, *active};
    handler->recorder->record(change);
    show(change, event->time);
  });
}

AXEventKeyValueSet* ax_event_key_value_set_new(void) { return std::make_unique<AXEventKeyValueSet>().release(); }

void ax_event_key_value_set_free(AXEventKeyValueSet* set) { delete set; }

gboolean ax_event_key_value_set_add_key_value(AXEventKeyValueSet* set, const gchar* key, const gchar* name_space,
                                              gconstpointer value, AXEventValueType type, GError** error) {
  if (set == nullptr || key == nullptr || value == nullptr) {
    return fail(error, "a key and a value are needed");
  }
  if (findKey(set->entries, key, name_space) != nullptr) {
    return fail(error, std::string("the set has the key \"") + key + "\" already");
  }
  return guarded(error, [&] {
    set->entries.push_back({key, name_space == nullptr ? "" : name_space, copyValue(value, type), false, ""});
  });
}

gboolean ax_event_key_value_set_add_key_values(AXEventKeyValueSet* set, GError** error, ...) {
  va_list arguments;
  va_start(arguments, error);
  gboolean added = TRUE;
  for (const gchar* key = va_arg(arguments, const gchar*); added != FALSE && key != nullptr;
       key = va_arg(arguments, const gchar*)) {
    const auto* name_space = va_arg(arguments, const gchar*);
    const auto* value = va_arg(arguments, gconstpointer);
    const auto type = static_cast<AXEventValueType>(va_arg(arguments, int));
    added = ax_event_key_value_set_add_key_value(set, key, name_space, value, type, error);
  }
  va_end(arguments);
  return added;
}

gboolean ax_event_key_value_set_mark_as_data(AXEventKeyValueSet* set, const gchar* key, const gchar* name_space,
                                             GError** error) {
  KeyValue* entry = set == nullptr || key == nullptr ? nullptr : findKey(set->entries, key, name_space);
  if (entry == nullptr) {
    return fail(error, "there is no such key to mark as data");
  }
  entry->is_data = true;
  return TRUE;
}

gboolean ax_event_key_value_set_add_nice_names(AXEventKeyValueSet* set, const gchar* key, const gchar* name_space,
                                               const gchar* /*key_nice_name*/, const gchar* value_nice_name,
                                               GError** error) {
  KeyValue* entry = set == nullptr || key == nullptr ? nullptr : findKey(set->entries, key, name_space);
  if (entry == nullptr) {
    return fail(error, "there is no such key to name");
  }
  entry->value_nice_name = value_nice_name == nullptr ? "" : value_nice_name;
  return TRUE;
}

AXEvent* ax_event_new2(AXEventKeyValueSet* set, GDateTime* time) {
  if (set == nullptr || time == nullptr) {
    return nullptr;
  }
  return std::make_unique<AXEvent>(AXEvent{set->entries, g_date_time_ref(time)}).release();
}

void ax_event_free(AXEvent* event) {
  if (event != nullptr) {
    g_date_time_unref(event->time);
    delete event;
  }
}
