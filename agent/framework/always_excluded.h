// What no migration copies, whatever it is told: the plug-in adds these patterns to those
// that it is given, which the agent must know to plan and to compare.
#ifndef QX_AGENT_FRAMEWORK_ALWAYS_EXCLUDED_H
#define QX_AGENT_FRAMEWORK_ALWAYS_EXCLUDED_H

namespace agent {

struct AlwaysExcluded {
  const char* pattern;
  const char* reason;
};

inline constexpr AlwaysExcluded kAlwaysExcluded[] = {
    {"/proc/*", "made by the kernel or kept in memory"},
    {"/sys/*", "made by the kernel or kept in memory"},
    {"/var/log/lastlog", "last logins, in a file that may be huge and sparse"},
    {"/var/qxagent.tmp", "the agent itself"},
};

}  // namespace agent

#endif
