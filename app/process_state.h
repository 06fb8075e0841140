// Process-wide plain state. Defined in app/globals.cpp; everything runs on the main loop's thread, nothing is locked.
#pragma once

#include <string>

/// Period of the analysis timer in ms; also the reference by which a cycle counts as too slow.
extern int g_main_loop_time;
/// One of status::Code.
extern int g_StatusCode;
/// Wall time of the last complete cycle in ms.
extern int g_ExecutionTime;
/// GLib source id of the analysis timer; 0 when there is none.
extern unsigned int g_ThreadID;
/// Size in pixels of the analysis picture in the camera's orientation: 1280 x 720 or 720 x 1280.
extern int g_StreamWidth;
extern int g_StreamHeight;
/// The camera is mounted in portrait orientation (rotation 90 or 270).
extern bool g_IsPortrait;
/// Developer mode: more diagnostics in the system log, the same decisions.
extern bool g_IsDevMode;
/// Input size in pixels of the upright pose model.
extern int g_modelWidth;
extern int g_modelHeight;
/// Identity in the system log, name of the parameter group and of the package directory.
extern const std::string g_app_name;
