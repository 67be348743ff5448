// People from the object detector's persons that a body confirms: MoveNet's single-person
// network, run on a crop around the person, must find a body whose key points fill the
// person's box. A texture or a machine the detector takes for a person gives no body or a
// body folded into a corner of the box (the space shuttle: eyes, shoulders and ankles within
// 20 by 70 pixels of a 420-pixel box). Pure functions, thread-safe; shared_objects.h finds
// the cue once per image.
#pragma once

#include <functional>
#include <optional>
#include <vector>

#include <opencv2/core.hpp>

#include "dnn/object_detector.h"
#include "dnn/pose.h"

namespace kv {

// Persons from this score on are checked for a body, best first, at most kMaxBodyChecks of
// them (one MoveNet pass each); the first confirmed one decides.
constexpr float kConfirmablePerson = 0.38f;
constexpr size_t kMaxBodyChecks = 3;

// Whether body (found in a crop around person, pixels of the image) confirms it: at least
// kMinBodyPoints key points of score kBodyPointScore, a mean key point score of
// kMinBodyScore, and those key points spanning kMinBodySpan of the box's width or height.
constexpr int kMinBodyPoints = 5;
constexpr float kBodyPointScore = 0.3f;
constexpr float kMinBodyScore = 0.2f;
constexpr float kMinBodySpan = 0.5f;
bool bodyConfirms(const Pose& body, const cv::Rect2f& person);

// The people cue from the detector's objects (best first): the best confirmed person scores
// 0.5 + 0.45 * clamp((score - kConfirmablePerson) / 0.5), at most 0.95; without one, the best
// person stays at or below 0.35. bodyIn finds the body in a box (nothing: no body network).
using BodyFinder = std::function<std::optional<Pose>(const cv::Rect2f&)>;
double peopleCue(const std::vector<ObjectDetection>& objects, const BodyFinder& bodyIn);
// Whether peopleCue would look for a body: a person of kConfirmablePerson or more.
bool needsBodyCheck(const std::vector<ObjectDetection>& objects);

// A cue at or above this says a person was confirmed.
constexpr double kConfirmedPeople = 0.5;
// Persons below this score are no evidence of people at all.
constexpr float kMinPersonScore = 0.2f;

// A number of people the detector counts (the classification's "alone", "two", "crowd"),
// from countScore: believed when cue (peopleCue's) confirmed one of the persons it checked,
// else worth at most kUnconfirmedCount of the cue: how many is a stronger claim than whether,
// so it stays under 0.18, below the 0.3 from which a summary shows a class.
constexpr double kUnconfirmedCount = 0.5;
double confirmedCount(double countScore, double cue);

}  // namespace kv
