// The calling thread's last framework error, which QXL::getErrorMessage() gives.
#ifndef QX_AGENT_SYSTEM_LAST_ERROR_H
#define QX_AGENT_SYSTEM_LAST_ERROR_H

#include <exception>
#include <string>

namespace agent {

/// Records the text for the calling thread and returns -1.
int fail(const std::string& text);

/// The same, with ": " and the text of errno behind it. errno is taken on entry.
int failErrno(const std::string& text);

/// Runs `work`; what it throws becomes the calling thread's last error. Returns 0 or -1.
template <class Work>
int attempt(Work&& work) {
  try {
    work();
    return 0;
  } catch (const std::exception& problem) {
    return fail(problem.what());
  }
}

void setLastError(const std::string& text);

/// The text of an errno value; safe from any thread.
std::string errnoText(int number);

}  // namespace agent

#endif
