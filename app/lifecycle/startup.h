// The steps of start-up that need no camera picture and no model.
#pragma once

/// Loads all settings from the parameter store and hands areas and stakes on.
void init_parameter_controller();
/// Sets the analysis picture's size from the camera's rotation.
void init_stream_size();
/// Opens the overlay and chooses its streams from the settings; failures are logged, the program runs without.
void init_overlay_manager();
/// Declares the two events.
void init_event_manager();
/// Calibrates the floor from the settings; false after log lines that name the settings at fault when it cannot be.
bool init_3D();
/// Prepares tracking.
void init_tracking();
/// All of these that the rules need, for who brings the people: no overlay. False as init_3D, logged.
bool init_rules();
