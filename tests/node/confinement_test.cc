#include "node/confinement.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <regex>

namespace {

using testing::Contains;
using testing::HasSubstr;
using testing::Not;

/// A pattern of AppArmor's as a regular expression.
std::regex asRegex(const std::string& pattern) {
  std::string text;
  int depth = 0;
  for (size_t i = 0; i < pattern.size(); ++i) {
    const char c = pattern[i];
    if (pattern.compare(i, 2, "**") == 0) {
      text += ".*";
      ++i;
    } else if (c == '{') {
      text += "(";
      ++depth;
    } else if (c == '}') {
      text += ")";
      --depth;
    } else if (c == ',' && depth > 0) {
      text += "|";
    } else if (c == '.') {
      text += "\\.";
    } else {
      text += c;
    }
  }
  return std::regex(text);
}

bool anyMatches(const std::vector<std::string>& patterns, const std::string& path) {
  for (const std::string& pattern : patterns) {
    if (std::regex_match(path, asRegex(pattern))) return true;
  }
  return false;
}

TEST(Outside, HasEveryPathButThoseThatBeginWithAPrefix) {
  const std::vector<std::string> patterns =
      node::outside({"/proc/", "/run/unit-root/proc/", "/run/unit-x/proc/"});
  for (const char* path :
       {"/", "/a/", "/a/proc/", "/p/", "/pro/", "/processes/", "/proc", "/run/", "/run/unit-root/",
        "/run/unit-root/sys/", "/run/unit-root/procs/", "/run/unit-y/proc/", "/run/unit/",
        "/run/unit-/", "/run/unit-roo/", "/run/unit-rooty/proc/", "/mnt/run/unit-root/proc/",
        "/run-/", "/usr/"}) {
    const bool file = std::string(path) == "/proc";  // A directory's name ends with a slash.
    EXPECT_EQ(anyMatches(patterns, path), !file) << path;
  }
  for (const char* path : {"/proc/", "/proc/sys/", "/run/unit-root/proc/", "/run/unit-x/proc/1/"}) {
    EXPECT_FALSE(anyMatches(patterns, path)) << path;
  }
}

TEST(Outside, PutsAHyphenWhereItMakesNoRange) {
  EXPECT_THAT(node::outside({"/a-b/", "/ac/"}), Contains(HasSubstr("[^-")));
}

TEST(MountRules, LetSystemdBuildItsViewsAndNothingElseShowProc) {
  const std::vector<std::string> rules = node::mountRules();
  EXPECT_THAT(rules, Contains("mount,"));
  EXPECT_THAT(rules, Contains(HasSubstr("sysrq-trigger")));
  EXPECT_THAT(rules, Not(Contains("pivot_root,")));
  const auto denies = [&](const std::string& what, const std::string& target) {
    for (const std::string& rule : rules) {
      const size_t arrow = rule.find(" -> ");
      if (!rule.starts_with("deny mount " + what) || arrow == rule.npos) continue;
      const std::string pattern = rule.substr(arrow + 4, rule.size() - arrow - 5);
      if (std::regex_match(target, asRegex(pattern))) return true;
    }
    return false;
  };
  for (const char* allowed :
       {"/proc/", "/sys/", "/run/systemd/unit-root/proc/", "/run/systemd/mount-rootfs/sys/"}) {
    EXPECT_FALSE(denies("fstype in (proc, sysfs)", allowed)) << allowed;
  }
  for (const char* denied : {"/mnt/", "/run/systemd/unit-root/", "/run/systemd/x/proc/"}) {
    EXPECT_TRUE(denies("fstype in (proc, sysfs)", denied)) << denied;
  }
  for (const std::string& rule : rules) EXPECT_TRUE(rule.ends_with(',')) << rule;
}

TEST(MountCalls, OfTheNewKindAreAddedToTheForbiddenOnes) {
  const std::string text = node::withoutMountCalls("2\ndenylist\n[all]\nkexec_load errno 1");
  EXPECT_THAT(text, HasSubstr("[all]\nkexec_load errno 1\nopen_tree errno 38\n"));
  for (const char* call : {"move_mount", "fsopen", "fsmount", "mount_setattr"}) {
    EXPECT_THAT(text, HasSubstr(std::string("\n") + call + " errno 38\n"));
  }
}

}  // namespace
