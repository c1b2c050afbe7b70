#include "host/base/Nearest.h"

#include <algorithm>
#include <cctype>

#include "host/text/Text.h"

namespace nimbo::base {

namespace {

std::string Lower(std::string text) {
  for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return text;
}

/// The number of single changes that make `one` the `other` (optimal string alignment).
std::size_t Distance(const std::string& one, const std::string& other) {
  std::vector<std::vector<std::size_t>> steps(one.size() + 1,
                                              std::vector<std::size_t>(other.size() + 1));
  for (std::size_t i = 0; i <= one.size(); ++i) {
    for (std::size_t j = 0; j <= other.size(); ++j) {
      if (i == 0 || j == 0) {
        steps[i][j] = i + j;
        continue;
      }
      const std::size_t differs = one[i - 1] != other[j - 1];
      steps[i][j] =
          std::min({steps[i - 1][j] + 1, steps[i][j - 1] + 1, steps[i - 1][j - 1] + differs});
      if (i > 1 && j > 1 && one[i - 1] == other[j - 2] && one[i - 2] == other[j - 1]) {
        steps[i][j] = std::min(steps[i][j], steps[i - 2][j - 2] + 1);
      }
    }
  }
  return steps[one.size()][other.size()];
}

}  // namespace

std::string Nearest(const std::string& name, const std::vector<std::string>& choices) {
  // A third of its letters may be wrong; longer names than any choice need no table.
  constexpr std::size_t Longest = 128;
  if (name.size() > Longest) return {};
  std::size_t least = (name.size() + 1) / 3 + 1;
  std::string nearest;
  for (const std::string& choice : choices) {
    const std::size_t distance = Distance(Lower(name), Lower(choice));
    if (distance >= least) continue;
    least = distance;
    nearest = choice;
  }
  return nearest;
}

std::string DidYouMean(const std::string& name, const std::vector<std::string>& choices) {
  const std::string nearest = Nearest(name, choices);
  return nearest.empty() ? "" : "; did you mean \"" + nearest + "\"?";
}

std::string Suggest(const std::string& name, const std::vector<std::string>& choices) {
  std::string question = DidYouMean(name, choices);
  if (!question.empty()) return question;
  return "; there are: " + (choices.empty() ? "none" : text::Joined(choices));
}

}  // namespace nimbo::base
