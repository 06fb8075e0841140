// The camera's parameter store on a workstation: a key file in the state directory, seeded from the package's manifest
// and from what the camera's description sets.
#include <axparameter.h>
#include <syslog.h>

#include <exception>
#include <memory>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>

#include "platform/workstation/camera/camera_description.h"
#include "platform/workstation/parameters/changes.h"
#include "platform/workstation/parameters/parameter_batch.h"
#include "platform/workstation/parameters/parameter_rules.h"
#include "platform/workstation/parameters/stored_parameters.h"
#include "platform/workstation/system/state_directory.h"

using workstation::Parameters;
using workstation::StoredParameters;
using workstation::StoredState;

struct _AXParameter {
  StoredParameters file;
  StoredState state;
  Parameters platform;   ///< full name -> value; read only
  bool unsaved = false;  ///< the state differs from the file's
};

namespace {

/// Stores that have something to write once the batch ends. Never destroyed: stores may be released after main.
std::set<AXParameter*>& stores_of_batch() {
  static auto& stores = *new std::set<AXParameter*>;
  return stores;
}
bool batch_is_open = false;
std::string& batch_by() {
  static auto& by = *new std::string;
  return by;
}

void save(AXParameter& store) {
  store.file.save(store.state);
  store.unsaved = false;
}

/// Why the text cannot be stored, or empty.
std::string textProblem(const std::string& name, const gchar* value) {
  if (!workstation::isParameterName(name)) {
    return "\"" + name + "\" is no parameter name: allowed are 1 to 64 letters, digits, '.', '-' and '_'";
  }
  if (value == nullptr || g_utf8_validate(value, -1, nullptr) == FALSE) {
    return "the value of " + name + " is not a text in UTF-8";
  }
  return "";
}

/// What a description has changed since the last start; what is new was never another.
void noteDescribed(const Parameters& stored, const Parameters& now) {
  for (const auto& [name, value] : stored) {
    if (const std::string& to = now.find(name)->second; !workstation::isSameValue(value, to)) {
      workstation::noteChange("", name, value, to);
    }
  }
}

AXParameter* openStore(const std::string& app_name) {
  const auto& camera = workstation::startedCamera();
  StoredParameters file(workstation::stateDirectory(), app_name);
  const std::optional<StoredState> stored = file.load();
  const std::string damage = file.damage();
  if (!damage.empty()) {
    syslog(LOG_ERR, "%s", damage.c_str());
  }
  for (const auto& [name, value] : camera.parameters) {
    if (const std::string problem = textProblem(name, value.c_str()); !problem.empty()) {
      throw std::runtime_error(camera.file + ": parameters: " + problem);
    }
  }
  const Parameters defaults = workstation::manifestDefaults(workstation::manifestPath(app_name));
  auto store = std::make_unique<AXParameter>(AXParameter{
      std::move(file),
      startFrom(stored.value_or(StoredState()), defaults, camera.parameters),
      {{"root.Image.I0.Appearance.Rotation", std::to_string(camera.rotation)},
       {"root.Brand.ProdShortName", camera.product_name}},
  });
  if (!damage.empty() || store->state != stored) {
    save(*store);
  }
  workstation::openChanges(workstation::stateDirectory());
  if (stored) noteDescribed(stored->values, store->state.values);
  workstation::tellParameters(store->state.values);
  return store.release();
}

gboolean fail(GError** error, AXParameterErrorCode code, const std::string& message) {
  g_set_error_literal(error, AX_PARAMETER_ERROR, code, message.c_str());
  return FALSE;
}

gboolean failUnopened(GError** error) {
  return fail(error, AX_PARAMETER_STORE_ERROR, "the parameter store is not open, or no name was given");
}

/// Runs what may throw; an exception becomes the caller's GError and `failed` the result. A caller who takes no GError
/// would lose the reason: it is logged.
template <typename Result, typename Function>
Result guarded(GError** error, Result failed, Function function) {
  try {
    return function();
  } catch (const std::exception& exception) {
    if (error == nullptr) {
      syslog(LOG_ERR, "%s", exception.what());
    }
    fail(error, AX_PARAMETER_STORE_ERROR, exception.what());
    return failed;
  }
}

/// Puts the value into the store, and with `sync` on disk or into the open batch; throws with the store as it was
/// before.
void put(AXParameter& store, const std::string& name, const std::string& value, bool sync) {
  const Parameters before = store.state.values;
  const bool unsaved_before = store.unsaved;
  store.state.values.insert_or_assign(name, value);
  store.unsaved = unsaved_before || store.state.values != before;
  try {
    if (sync && store.unsaved && batch_is_open) {
      stores_of_batch().insert(&store);
    } else if (sync && store.unsaved) {
      save(store);
    }
  } catch (...) {
    store.state.values = before;
    store.unsaved = unsaved_before;
    throw;
  }
  workstation::tellParameters(store.state.values);
}

/// Saves one store of the batch; false after a log line.
bool saveLogged(AXParameter& store) {
  try {
    save(store);
    return true;
  } catch (const std::exception& exception) {
    syslog(LOG_ERR, "%s", exception.what());
    return false;
  }
}

}  // namespace

workstation::ParameterBatch::ParameterBatch(const std::string& by) {
  batch_is_open = true;
  batch_by() = by;
}

workstation::ParameterBatch::~ParameterBatch() { finish(); }

bool workstation::ParameterBatch::finish() {
  batch_is_open = false;
  batch_by().clear();
  bool is_saved = true;
  for (AXParameter* store : std::exchange(stores_of_batch(), {})) {
    is_saved = saveLogged(*store) && is_saved;
  }
  return is_saved;
}

GQuark ax_parameter_error_quark(void) { return g_quark_from_static_string("ax-parameter-error-quark"); }

AXParameter* ax_parameter_new(const gchar* app_name, GError** error) {
  return guarded<AXParameter*>(error, nullptr, [&] { return openStore(app_name); });
}

void ax_parameter_free(AXParameter* parameter) {
  if (parameter == nullptr) {
    return;
  }
  stores_of_batch().erase(parameter);
  if (parameter->unsaved) {
    saveLogged(*parameter);
  }
  delete parameter;
}

gboolean ax_parameter_add(AXParameter* parameter, const gchar* name, const gchar* initial_value, const gchar* /*type*/,
                          GError** error) {
  if (parameter == nullptr || name == nullptr) {
    return failUnopened(error);
  }
  if (parameter->state.values.contains(name) || parameter->platform.contains(name)) {
    return fail(error, AX_PARAMETER_PARAM_EXISTS_ERROR, std::string(name) + " exists already");
  }
  if (const std::string problem = textProblem(name, initial_value); !problem.empty()) {
    return fail(error, AX_PARAMETER_STORE_ERROR, problem);
  }
  return guarded<gboolean>(error, FALSE, [&] {
    put(*parameter, name, initial_value, true);
    return TRUE;
  });
}

gboolean ax_parameter_set(AXParameter* parameter, const gchar* name, const gchar* value, gboolean do_sync,
                          GError** error) {
  if (parameter == nullptr || name == nullptr) {
    return failUnopened(error);
  }
  if (!parameter->state.values.contains(name)) {
    const char* reason = parameter->platform.contains(name) ? " belongs to the camera and cannot be set"
                                                            : " is not a parameter of this application";
    return fail(error, AX_PARAMETER_PARAM_NOT_FOUND_ERROR, std::string(name) + reason);
  }
  if (const std::string problem = textProblem(name, value); !problem.empty()) {
    return fail(error, AX_PARAMETER_STORE_ERROR, problem);
  }
  return guarded<gboolean>(error, FALSE, [&] {
    const std::string before = parameter->state.values.find(name)->second;
    put(*parameter, name, value, do_sync != FALSE);
    if (!workstation::isSameValue(before, value)) workstation::noteChange(batch_by(), name, before, value);
    return TRUE;
  });
}

gboolean ax_parameter_get(AXParameter* parameter, const gchar* name, gchar** value, GError** error) {
  if (parameter == nullptr || name == nullptr || value == nullptr) {
    return failUnopened(error);
  }
  for (const Parameters* group : {&parameter->state.values, &parameter->platform}) {
    if (const auto found = group->find(name); found != group->end()) {
      *value = g_strdup(found->second.c_str());
      return TRUE;
    }
  }
  return fail(error, AX_PARAMETER_PARAM_NOT_FOUND_ERROR, std::string(name) + " is not a parameter");
}

GList* ax_parameter_list(AXParameter* parameter, GError** error) {
  if (parameter == nullptr) {
    failUnopened(error);
    return nullptr;
  }
  GList* names = nullptr;
  for (const auto& [name, value] : parameter->state.values) names = g_list_prepend(names, g_strdup(name.c_str()));
  return g_list_reverse(names);
}
