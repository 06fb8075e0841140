// How the findings history places feet on the floor.
#pragma once

/// Filled from the parameter store; holds no defaults of its own.
struct _FloorParams {
  bool b_FeetOnFloor =
      false;  ///< a floor point has height 0; otherwise the third coordinate of the mapping, 1, is used
};

extern _FloorParams g_FloorParams;
