// Work beside the stages, shown as they are.
#ifndef QX_AGENT_PROGRAMS_SHOWN_STEP_H
#define QX_AGENT_PROGRAMS_SHOWN_STEP_H

#include <chrono>

#include "agent/programs/migration.h"

namespace agent {

/// Does the work and returns what it returns. What it throws is shown as a failure, and
/// goes on.
template <class Function>
auto shown(MigrationView& view, const char* step, Function function) {
  const auto began = std::chrono::steady_clock::now();
  const auto end = [&](int result) {
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - began;
    view.stageEnds(step, result, took.count());
  };
  view.stageBegins(step);
  try {
    auto result = function();
    end(0);
    return result;
  } catch (...) {
    end(-1);
    throw;
  }
}

}  // namespace agent

#endif
