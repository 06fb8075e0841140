// The camera's parameter store.
#pragma once

#include <glib-object.h>

G_BEGIN_DECLS

typedef struct _AXParameter AXParameter;

#define AX_PARAMETER_ERROR ax_parameter_error_quark()
GQuark ax_parameter_error_quark(void);

typedef enum {
  AX_PARAMETER_PARAM_NOT_FOUND_ERROR = 7,
  AX_PARAMETER_PARAM_EXISTS_ERROR = 13,
  AX_PARAMETER_STORE_ERROR = 20,  ///< the store cannot be read or written
} AXParameterErrorCode;

/// Opens the application's parameter group. NULL and an error on failure; release with ax_parameter_free.
AXParameter* ax_parameter_new(const gchar* app_name, GError** error);
void ax_parameter_free(AXParameter* parameter);
/// Adds a parameter to the group; fails with AX_PARAMETER_PARAM_EXISTS_ERROR when it is there already.
gboolean ax_parameter_add(AXParameter* parameter, const gchar* name, const gchar* initial_value, const gchar* type,
                          GError** error);
/// With do_sync the value is on disk when the call returns; within an HTTP request, before its reply leaves.
gboolean ax_parameter_set(AXParameter* parameter, const gchar* name, const gchar* value, gboolean do_sync,
                          GError** error);
/// Reads a parameter of the group, or a platform parameter by its full name ("root...."). Free *value with g_free.
gboolean ax_parameter_get(AXParameter* parameter, const gchar* name, gchar** value, GError** error);
/// The names of the group's parameters; free with g_list_free_full(list, g_free).
GList* ax_parameter_list(AXParameter* parameter, GError** error);

G_END_DECLS
