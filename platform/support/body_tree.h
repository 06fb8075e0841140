// The tree of body parts along which a pose network tells displacements.
#pragma once

#include <array>
#include <cstddef>
#include <utility>

/// Parent and child as numbers of the 17 keypoints (COCO's order, nose to right ankle), from the nose outwards; the
/// channels of the mid offsets stand in this order.
inline constexpr std::array<std::pair<std::size_t, std::size_t>, 16> kBodyTree = {{
    {0, 1},
    {1, 3},
    {0, 2},
    {2, 4},
    {0, 5},
    {5, 7},
    {7, 9},
    {5, 11},
    {11, 13},
    {13, 15},
    {0, 6},
    {6, 8},
    {8, 10},
    {6, 12},
    {12, 14},
    {14, 16},
}};
