/// Small text helpers offered to Java next to the extractor. Pure functions, thread-safe.
#pragma once

#include <string>
#include <vector>

namespace VQFeature {

/// 1 when b occurs in a, 0 when it does not, -1 when a is shorter than b. A null text
/// counts as empty; an empty b is never contained. The scan keeps its historical 8-bit
/// position counters, so it is exact only for texts shorter than 256 bytes; for longer
/// ones a match it reaches is still reported, and a scan that would cycle forever
/// answers 0.
int strContains(const char* a, const char* b);

/// Cuts text at every character that occurs in separators. The first piece starts at
/// position 0, so a leading separator gives an empty first piece (",a" -> "", "a");
/// other empty pieces (from adjacent or trailing separators) are dropped, and an empty
/// text gives an empty list.
std::vector<std::string> split(const std::string& text, const std::string& separators = " ");

/// Joins the elements with separator between them. An element is appended without a
/// separator while the text built so far is still empty, so leading empty elements leave
/// no separator behind (join({"", "a"}, ",") is "a").
std::string join(const std::vector<std::string>& list, const std::string& separator = ",");

}  // namespace VQFeature
