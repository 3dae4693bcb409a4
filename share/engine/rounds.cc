#include "share/engine/rounds.h"

namespace engine {

namespace {

constexpr std::chrono::seconds kLongRound{3};  // after shorter ones little is left
constexpr size_t kMostRounds = 6;              // the first walk among them

}  // namespace

bool goesRoundAgain(const std::vector<std::chrono::steady_clock::duration>& took) {
  const size_t count = took.size();
  if (count == 0 || count >= kMostRounds || took[count - 1] < kLongRound) return false;
  return count == 1 || took[count - 1] < took[count - 2] * 7 / 10;
}

}  // namespace engine
