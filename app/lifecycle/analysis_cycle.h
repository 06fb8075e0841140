// One full pass: take a picture, find the people in it, decide, publish.
#pragma once

/// Runs one analysis cycle on the main loop's thread. 0 when it completed; 1 when a model could not be run: what the
/// last complete cycle left then stays, but for g_StatusCode.
int do_one_analysis();

/// The cycle's first half: takes a picture, and the fused skeletons of the four rotations go into g_skeletons. False,
/// with g_skeletons as they were and g_StatusCode set, when a model could not be run.
bool find_people();

/// The second half: decides about g_skeletons and sends what has changed of the events.
void decide();
