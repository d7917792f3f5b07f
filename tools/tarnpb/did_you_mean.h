// "Did you mean": the known name closest to one the user typed, for option
// names, message type names and --find paths alike.
#ifndef TARN_TOOLS_TARNPB_DID_YOU_MEAN_H
#define TARN_TOOLS_TARNPB_DID_YOU_MEAN_H

#include <string>
#include <vector>

namespace tarnpb {

// The candidate with the fewest single-character edits from typed_, when it is
// close enough to be a slip (one edit per five characters of the longer name,
// at least one and at most three; letter case costs nothing); empty
// otherwise. Ties go to the earlier candidate.
std::string closestName(const std::string& typed_, const std::vector<std::string>& candidates_);

// " (did you mean NAME?)", or empty when nothing is close.
std::string didYouMean(const std::string& typed_, const std::vector<std::string>& candidates_);

}  // namespace tarnpb

#endif
