// Settings that are read once at start and never written by the program.
#pragma once

#include <larod.h>

#include <string>

/// Filled from the parameter store; holds no defaults of its own. File names are relative to the package directory.
struct _InitialParams {
  larodChip l_LarodChipType = LAROD_CHIP_INVALID;  ///< inference device of all models
  std::string s_LandscapeModelFileName;            ///< pose model for a picture wider than high
  std::string s_PortraitModelFileName;             ///< pose model for a picture higher than wide
  std::string s_mobilenetModelFileName;            ///< model that confirms persons
  unsigned int i_mobilenetModelWidth = 0;          ///< its input width, pixels
  unsigned int i_mobilenetModelHeight = 0;         ///< its input height, pixels
};

extern _InitialParams g_InitialParams;
