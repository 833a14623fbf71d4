#include "tools/tune/sample.h"

#include <algorithm>
#include <array>
#include <numeric>

namespace quarlo::tools::tune {
namespace {

using Numbers = std::vector<std::size_t>;

std::size_t costOf(const std::vector<Candidate>& presses) {
  return std::accumulate(presses.begin(), presses.end(), std::size_t{0},
                         [](std::size_t cost, const Candidate& press) { return cost + press.cost; });
}

// The taps or the held buttons, by what `valueOf` says of them.
Numbers sorted(const std::vector<Candidate>& presses, bool held, microseconds Candidate::*value) {
  Numbers numbers;
  for (std::size_t i = 0; i < presses.size(); ++i) {
    if (presses[i].held == held) numbers.push_back(i);
  }
  std::stable_sort(numbers.begin(), numbers.end(),
                   [&](std::size_t a, std::size_t b) { return presses[a].*value < presses[b].*value; });
  return numbers;
}

// Between 0 and 1, where the count-th of ever more points falls that are spread evenly: both ends, the middle, the
// quarters, the eighths, and so on.
double spread(std::size_t count) {
  if (count < 2) return static_cast<double>(count);
  double place = 0;
  double step = 0.5;
  for (std::size_t bits = count - 1; bits != 0; bits /= 2, step /= 2) {
    if (bits % 2 != 0) place += step;
  }
  return place;
}

// Takes presses until one is too much.
class Choice {
 public:
  Choice(const std::vector<Candidate>& presses, std::size_t budget)
      : presses_(presses), left_(budget), chosen_(presses.size()) {}

  bool take(std::size_t number) {
    const bool withPrevious = presses_[number].follows && number > 0 && !chosen_[number - 1];
    const std::size_t cost = presses_[number].cost + (withPrevious ? presses_[number - 1].cost : 0);
    if (chosen_[number]) return true;
    if (cost > left_) return false;
    left_ -= cost;
    chosen_[number] = true;
    if (withPrevious) chosen_[number - 1] = true;
    return true;
  }

  Numbers numbers() const {
    Numbers numbers;
    for (std::size_t i = 0; i < chosen_.size(); ++i) {
      if (chosen_[i]) numbers.push_back(i);
    }
    return numbers;
  }

 private:
  const std::vector<Candidate>& presses_;
  std::size_t left_;
  std::vector<bool> chosen_;
};

Numbers all(std::size_t count) {
  Numbers numbers(count);
  std::iota(numbers.begin(), numbers.end(), std::size_t{0});
  return numbers;
}

}  // namespace

std::vector<std::size_t> choosePresses(const std::vector<Candidate>& presses, std::size_t budget) {
  if (costOf(presses) <= budget) return all(presses.size());
  const std::array<Numbers, 4> orders = {
      sorted(presses, false, &Candidate::length), sorted(presses, false, &Candidate::pause),
      sorted(presses, true, &Candidate::length), sorted(presses, true, &Candidate::pause)};
  Choice choice(presses, budget);
  for (std::size_t count = 0; count < budget; ++count) {
    for (const Numbers& order : orders) {
      if (order.empty()) continue;
      const double place = spread(count) * static_cast<double>(order.size() - 1);
      if (!choice.take(order[static_cast<std::size_t>(place)])) return choice.numbers();
    }
  }
  return choice.numbers();
}

}  // namespace quarlo::tools::tune
