#include "common/suggestion.h"

#include <algorithm>
#include <numeric>
#include <utility>
#include <vector>

#include "common/ascii.h"

namespace perilink::tools {
namespace {

constexpr size_t kLongestWord = 64;

// Letters to add, drop, change or swap with their neighbour.
size_t Distance(const std::string& from, const std::string& to) {
  std::vector<size_t> before_last;
  std::vector<size_t> last(to.size() + 1);
  std::iota(last.begin(), last.end(), size_t{0});
  for (size_t i = 1; i <= from.size(); ++i) {
    std::vector<size_t> row(to.size() + 1, i);
    for (size_t j = 1; j <= to.size(); ++j) {
      const size_t changed = last[j - 1] + (from[i - 1] == to[j - 1] ? 0 : 1);
      row[j] = std::min({changed, last[j] + 1, row[j - 1] + 1});
      if (i > 1 && j > 1 && from[i - 1] == to[j - 2] && from[i - 2] == to[j - 1]) {
        row[j] = std::min(row[j], before_last[j - 2] + 1);
      }
    }
    before_last = std::exchange(last, std::move(row));
  }
  return last.back();
}

}  // namespace

std::string NearestWord(std::string_view word, std::span<const std::string> candidates) {
  if (word.empty() || word.size() > kLongestWord) return "";
  // A third of the letters may be wrong: a shorter word has hardly anything else that it could
  // mean.
  size_t least = std::max<size_t>(1, word.size() / 3) + 1;
  std::string nearest;
  for (const std::string& candidate : candidates) {
    if (candidate.size() > kLongestWord) continue;
    const size_t distance = Distance(Lower(word), Lower(candidate));
    if (distance < least) {
      least = distance;
      nearest = candidate;
    }
  }
  return nearest;
}

std::string DidYouMean(std::string_view word, std::span<const std::string> candidates) {
  const std::string nearest = NearestWord(word, candidates);
  return nearest.empty() ? "" : "; did you mean '" + nearest + "'?";
}

}  // namespace perilink::tools
