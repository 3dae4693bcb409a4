#include "node/confinement.h"

#include <algorithm>
#include <set>

#include "host/text.h"

namespace node {
namespace {

/// Where systemd builds a service's view of the tree: up to version 254, and since.
constexpr char kViews[] = "/run/systemd/{unit-root,mount-rootfs}/";
const std::vector<std::string> kViewPrefixes{"/run/systemd/unit-root/",
                                             "/run/systemd/mount-rootfs/"};

std::vector<std::string> withEach(const std::vector<std::string>& prefixes) {
  std::vector<std::string> all;
  for (const std::string& prefix : prefixes) {
    for (const char* name : {"proc/", "sys/"}) all.push_back(prefix + name);
  }
  return all;
}

}  // namespace

std::vector<std::string> outside(const std::vector<std::string>& prefixes) {
  // A path is outside when it leaves what the prefixes have in common at some point:
  // it ends there, or goes on with a character that none of them has next.
  std::set<std::string> starts;
  for (const std::string& prefix : prefixes) {
    for (size_t length = 1; length < prefix.size(); ++length) {
      starts.insert(prefix.substr(0, length));
    }
  }
  std::vector<std::string> patterns;
  for (const std::string& start : starts) {
    std::set<char> next;
    for (const std::string& prefix : prefixes) {
      if (prefix.size() > start.size() && prefix.starts_with(start)) {
        next.insert(prefix[start.size()]);
      }
    }
    // A hyphen between two characters would be a range. No name begins with a slash.
    std::string known = next.contains('-') ? "-/" : "/";
    for (const char c : next) {
      if (known.find(c) == known.npos) known += c;
    }
    const std::string other = "[^" + known + "]{,**}";
    if (start.ends_with('/')) {
      patterns.push_back(host::textf("%s{,%s}", start.c_str(), other.c_str()));
    } else if (next.contains('/')) {
      patterns.push_back(start + other);
    } else {
      patterns.push_back(host::textf("%s{%s,/{,**}}", start.c_str(), other.c_str()));
    }
  }
  return patterns;
}

std::vector<std::string> mountRules() {
  std::vector<std::string> rules{"mount,"};
  const auto denyOutside = [&](const std::string& what, const std::vector<std::string>& places) {
    for (const std::string& pattern : outside(places)) {
      rules.push_back(host::textf("deny mount %s -> %s,", what.c_str(), pattern.c_str()));
    }
  };
  const std::string views = kViews;
  // Who changes the root may keep the old one, but not at a third place.
  for (const std::string& view : kViewPrefixes) {
    rules.push_back(host::textf("pivot_root oldroot=%s %s,", view.c_str(), view.c_str()));
  }
  std::vector<std::string> roots{"/"};
  roots.insert(roots.end(), kViewPrefixes.begin(), kViewPrefixes.end());
  denyOutside("fstype in (proc, sysfs)", withEach(roots));
  for (const char* type : {"debugfs", "tracefs", "securityfs", "efivarfs", "bpf", "binfmt_misc",
                           "configfs", "pstore"}) {
    rules.push_back(std::string("deny mount fstype=") + type + ",");
  }
  denyOutside("options in (rw, ro, silent, bind, rbind, move) {/," + views + "}{proc,sys}/{,**}",
              withEach(kViewPrefixes));
  // What holds a /proc goes nowhere else as a whole, but to be the root.
  denyOutside("options in (rw, ro, silent, rbind) {/," + views + "}", kViewPrefixes);
  rules.push_back("deny mount options in (rw, ro, silent, move) " + views + " -> /?{,**},");
  rules.push_back(
      "deny mount options in (rw, remount, bind, nosuid, nodev, noexec, relatime, silent) -> "
      "/sys/,");
  rules.push_back("deny " + views + "{proc,sys}/{,**} wkl,");
  // Whatever else makes them show up somewhere, these are the way to the host's root.
  rules.emplace_back("deny /{,**/}{sysrq-trigger,core_pattern,uevent_helper,release_agent} wkl,");
  return rules;
}

std::string withoutMountCalls(const std::string& common) {
  std::string text = common;
  if (!text.ends_with('\n')) text += '\n';
  constexpr int kNoSuchCall = 38;
  for (const char* call :
       {"open_tree", "move_mount", "fsopen", "fsconfig", "fsmount", "fspick", "mount_setattr"}) {
    text += std::string(call) + " errno " + std::to_string(kNoSuchCall) + "\n";
  }
  return text;
}

}  // namespace node
