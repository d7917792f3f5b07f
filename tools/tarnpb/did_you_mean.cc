#include "did_you_mean.h"

#include <algorithm>
#include <cctype>

namespace tarnpb {

namespace {

char folded(char c_) { return static_cast<char>(std::tolower(static_cast<unsigned char>(c_))); }

// Edits (insert, delete, replace, swap of neighbours) from a_ to b_.
size_t distance(const std::string& a_, const std::string& b_) {
  std::vector<std::vector<size_t>> d(a_.size() + 1, std::vector<size_t>(b_.size() + 1));
  for (size_t i = 0; i <= a_.size(); ++i) d[i][0] = i;
  for (size_t j = 0; j <= b_.size(); ++j) d[0][j] = j;
  for (size_t i = 1; i <= a_.size(); ++i) {
    for (size_t j = 1; j <= b_.size(); ++j) {
      const size_t cost = folded(a_[i - 1]) == folded(b_[j - 1]) ? 0 : 1;
      d[i][j] = std::min({d[i - 1][j] + 1, d[i][j - 1] + 1, d[i - 1][j - 1] + cost});
      if (i > 1 && j > 1 && folded(a_[i - 1]) == folded(b_[j - 2]) &&
          folded(a_[i - 2]) == folded(b_[j - 1]))
        d[i][j] = std::min(d[i][j], d[i - 2][j - 2] + 1);
    }
  }
  return d[a_.size()][b_.size()];
}

}  // namespace

std::string closestName(const std::string& typed_, const std::vector<std::string>& candidates_) {
  std::string best;
  size_t bestDistance = 0;
  for (const auto& candidate : candidates_) {
    // Names far longer or shorter cannot be close; the table is not filled.
    const size_t longer = std::max(typed_.size(), candidate.size());
    const size_t allowed = std::min<size_t>(3, std::max<size_t>(1, longer / 5));
    const size_t gap = longer - std::min(typed_.size(), candidate.size());
    if (gap > allowed) continue;
    const size_t edits = distance(typed_, candidate);
    if (edits <= allowed && (best.empty() || edits < bestDistance)) {
      best = candidate;
      bestDistance = edits;
    }
  }
  return best;
}

std::string didYouMean(const std::string& typed_, const std::vector<std::string>& candidates_) {
  const std::string best = closestName(typed_, candidates_);
  return best.empty() ? "" : " (did you mean " + best + "?)";
}

}  // namespace tarnpb
