// How the process ends: on SIGTERM, and on an exception that nobody caught.
#pragma once

#include <glib.h>

/// The main loop; null until main creates it.
extern GMainLoop* gp_Loop;

/// Ignores SIGPIPE and ends the program on SIGTERM: with status 1 at once while there is no main loop, else by removing
/// the analysis timer and quitting the loop. A process that is still there 5 s after SIGTERM has come is ended, with
/// status 0 once the loop has run and 1 before. Call once.
void init_signals();

/// From here on SIGTERM is delivered only between two turns of the main loop, so that its handler never interrupts GLib
/// or a cycle. Call on the main thread, just before the loop is created.
void deliverSigtermWhileWaiting();

/// An exception that leaves main ends the process with status 255 and one line, without a core.
void init_terminate();
