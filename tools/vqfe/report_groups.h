// What the report calls photos and which groups it shows: names short enough for a
// thumbnail yet telling apart two files of one name in different folders, and similar
// photos apart from the copies they include.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace vqfe {

// Each path's shortest ending of whole path parts that no other path ends in
// ("2023/x.jpg" and "phone/x.jpg" beside "y.jpg"); a path that is the ending of another
// keeps all of it. Names without a folder (asset ids) stay as they are.
std::map<std::string, std::string> shortNames(const std::vector<std::string>& paths);

// The similar groups that are more than a group of copies (similar groups include the
// copies: a group that is one of them says nothing new).
std::vector<std::vector<std::string>> beyondCopies(const std::vector<std::vector<std::string>>& similar,
                                                   const std::vector<std::vector<std::string>>& copies);

}  // namespace vqfe
