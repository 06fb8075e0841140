#include "platform/scripted/parameters.h"

#include <axparameter.h>

namespace scripted {

Parameters& parameters() {
  static Parameters store;
  return store;
}

namespace {

gboolean fail(GError** error, AXParameterErrorCode code, const char* text) {
  g_set_error_literal(error, AX_PARAMETER_ERROR, code, text);
  return FALSE;
}

bool fails(const char* call, GError** error) {
  return strikes(parameters().faults, call) && fail(error, AX_PARAMETER_STORE_ERROR, "store is gone") == FALSE;
}

}  // namespace
}  // namespace scripted

using scripted::fail;
using scripted::fails;
using scripted::parameters;

extern "C" {
GQuark ax_parameter_error_quark() { return g_quark_from_static_string("parameter"); }
AXParameter* ax_parameter_new(const gchar*, GError** error) {
  return fails("ax_parameter_new", error) ? nullptr : reinterpret_cast<AXParameter*>(&parameters());
}
void ax_parameter_free(AXParameter*) {}
gboolean ax_parameter_add(AXParameter*, const gchar* name, const gchar* initial_value, const gchar*, GError** error) {
  if (fails("ax_parameter_add", error)) return FALSE;
  return parameters().values.emplace(name, initial_value).second
             ? TRUE
             : fail(error, AX_PARAMETER_PARAM_EXISTS_ERROR, "parameter exists");
}
gboolean ax_parameter_set(AXParameter*, const gchar* name, const gchar* value, gboolean, GError** error) {
  if (fails("ax_parameter_set", error)) return FALSE;
  const auto found = parameters().values.find(name);
  if (found == parameters().values.end()) return fail(error, AX_PARAMETER_PARAM_NOT_FOUND_ERROR, "no such parameter");
  found->second = value;
  return TRUE;
}
gboolean ax_parameter_get(AXParameter*, const gchar* name, gchar** value, GError** error) {
  if (fails("ax_parameter_get", error)) return FALSE;
  const auto found = parameters().values.find(name);
  if (found == parameters().values.end()) return fail(error, AX_PARAMETER_PARAM_NOT_FOUND_ERROR, "no such parameter");
  *value = g_strdup(found->second.c_str());
  return TRUE;
}
GList* ax_parameter_list(AXParameter*, GError** error) {
  GList* names = nullptr;
  if (fails("ax_parameter_list", error)) return names;
  for (const auto& [name, value] : parameters().values) {
    if (!name.starts_with("root.")) names = g_list_append(names, g_strdup(name.c_str()));
  }
  return names;
}
}
