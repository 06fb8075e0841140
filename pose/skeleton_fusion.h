// One skeleton per person from the runs of the pose models at four rotations.
#pragma once

#include "pose/skeleton.h"

/// Fuses the skeletons of the runs at 0 (north), 270 (east), 180 (south) and 90 degrees (west), all in pixels of the
/// upright picture, and keeps those that score above `aiThreshold` and have a top of body. The model's size has no
/// influence.
Skeletons combineSkeletons(const Skeletons& north, const Skeletons& east, const Skeletons& south, const Skeletons& west,
                           float aiThreshold, int modelWidth, int modelHeight);

/// Takes the closest pair while it is at most 100 apart (see getDistance): skeletons of runs a quarter turn apart are
/// merged into a new one at the end of the list, of any others the weaker goes.
void clusterSkeletons(Skeletons& S);

/// The first pair i < j with the smallest distance. Without any, i and j stay untouched and minDistance is the largest
/// float.
void findMinDistancePair(const Skeletons& S, int& i, int& j, float& minDistance);

/// The mean keypoint distance in pixels, weighted by scores and body parts, shrunk by the share of the smaller box
/// that the boxes have in common: 0 when one lies within the other. Not a number when no keypoint has a score. Throws
/// std::out_of_range for a missing body part.
float getDistance(const Skeleton& s1, const Skeleton& s2);

/// Intersection over the smaller of two boxes, 0 to 1.
float getIOS(const BoundingBox& a, const BoundingBox& b);

/// The skeleton of two views of one person: keypoints at the score-weighted mean, scores added up.
Skeleton merge(const Skeleton& s1, const Skeleton& s2);
