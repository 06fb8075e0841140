// The camera's web server: hands requests for the application's address on to it.
#pragma once

#include <gio/gio.h>

G_BEGIN_DECLS

typedef struct _AXHttpHandler AXHttpHandler;

/// Called on the main loop's thread for each request. `path` and `method` are the request's; `query` is its raw query
/// text, NULL for none; `params` holds key and value of the query or of a form-encoded body, decoded, the last of a
/// repeated key, NULL for neither. What the callback writes to `output_stream` is the reply, CGI style: header lines,
/// an empty line, a body; nothing at all is an empty reply. Everything is borrowed and ends with the call.
typedef void (*AXRequestCallback)(const gchar* path, const gchar* method, const gchar* query, GHashTable* params,
                                  GOutputStream* output_stream, gpointer user_data);

/// Registers the callback; the caller owns the handler. One handler a process.
AXHttpHandler* ax_http_handler_new(AXRequestCallback callback, gpointer user_data);
/// The callback is not called any more once this returns.
void ax_http_handler_free(AXHttpHandler* handler);

G_END_DECLS
