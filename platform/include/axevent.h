// The camera's event system: declarations and state changes.
#pragma once

#include <glib-object.h>

G_BEGIN_DECLS

typedef struct _AXEventHandler AXEventHandler;
typedef struct _AXEventKeyValueSet AXEventKeyValueSet;
typedef struct _AXEvent AXEvent;

typedef enum {
  AX_VALUE_TYPE_INT = 0,     ///< gint*
  AX_VALUE_TYPE_BOOL = 1,    ///< gboolean*
  AX_VALUE_TYPE_DOUBLE = 2,  ///< gdouble*
  AX_VALUE_TYPE_STRING = 3,  ///< const gchar*
} AXEventValueType;

typedef void (*AXDeclarationCompleteCallback)(guint declaration, gpointer user_data);

AXEventHandler* ax_event_handler_new(void);
void ax_event_handler_free(AXEventHandler* handler);

/// Declares an event. The set stays the caller's; *declaration is a positive id on success and untouched on failure.
gboolean ax_event_handler_declare(AXEventHandler* handler, AXEventKeyValueSet* set, gboolean stateless,
                                  guint* declaration, AXDeclarationCompleteCallback callback, gpointer user_data,
                                  GError** error);
gboolean ax_event_handler_undeclare(AXEventHandler* handler, guint declaration, GError** error);
/// Sends a change of a declared event. It counts as sent once it is on disk. The event stays the caller's.
gboolean ax_event_handler_send_event(AXEventHandler* handler, guint declaration, AXEvent* event, GError** error);

AXEventKeyValueSet* ax_event_key_value_set_new(void);
void ax_event_key_value_set_free(AXEventKeyValueSet* set);
/// Adds groups of (key, name space or NULL, pointer to the value, AXEventValueType), ended by a NULL key.
gboolean ax_event_key_value_set_add_key_values(AXEventKeyValueSet* set, GError** error, ...) G_GNUC_NULL_TERMINATED;
gboolean ax_event_key_value_set_add_key_value(AXEventKeyValueSet* set, const gchar* key, const gchar* name_space,
                                              gconstpointer value, AXEventValueType type, GError** error);
gboolean ax_event_key_value_set_mark_as_data(AXEventKeyValueSet* set, const gchar* key, const gchar* name_space,
                                             GError** error);
gboolean ax_event_key_value_set_add_nice_names(AXEventKeyValueSet* set, const gchar* key, const gchar* name_space,
                                               const gchar* key_nice_name, const gchar* value_nice_name,
                                               GError** error);

/// An event with the set's values (copied) at the given time (borrowed).
AXEvent* ax_event_new2(AXEventKeyValueSet* set, GDateTime* time);
void ax_event_free(AXEvent* event);

G_END_DECLS
