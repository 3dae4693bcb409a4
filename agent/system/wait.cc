#include "agent/system/wait.h"

#include <poll.h>

#include <vector>

namespace agent {

bool waitFor(int fd, short events, std::chrono::milliseconds timeout,
             std::initializer_list<int> others) {
  std::vector<pollfd> entries = {{fd, events, 0}};
  for (const int other : others) entries.push_back({other, POLLIN, 0});
  const int ready = poll(entries.data(), entries.size(), static_cast<int>(timeout.count()));
  return ready > 0 && entries[0].revents != 0;
}

}  // namespace agent
