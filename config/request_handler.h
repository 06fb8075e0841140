// The program's side of the web page.
#pragma once

#include <gio/gio.h>

/// Answers one request, on the main loop's thread between two cycles: the query key "action" in `params` chooses what
/// is done. The reply, CGI style, goes to `output`, which is borrowed and left open; an action that is not known, and
/// "set_all_parameters", write nothing.
void request_handler(const gchar* path, const gchar* method, const gchar* query, GHashTable* params,
                     GOutputStream* output, gpointer user_data);
