// What a survey of a server finds.
#ifndef QX_AGENT_PLAN_SURVEY_FACTS_H
#define QX_AGENT_PLAN_SURVEY_FACTS_H

#include <string>
#include <vector>

#include "agent/plan/quota_survey.h"

namespace agent {

/// One mounted file system, or one that /etc/fstab names and that is not mounted.
struct SurveyedFileSystem {
  std::string device, mountPoint, type, options;
  bool copied = false;  ///< its files go into the container
  bool mounted = false;
  bool remote = false;      ///< on another machine; not asked for figures
  std::string reason = "";  // why the files of a mounted local one cannot be copied
  /// Of what is to be copied, exclusions left out. Counted file by file where
  /// `counted`; else the file system's own figures, which know no exclusions.
  bool counted = false;
  long long bytes = 0, files = 0;
};

struct SwapFile {
  std::string path;
  long long bytes = 0;
};

struct Survey {
  std::vector<SurveyedFileSystem> fileSystems;
  std::vector<SurveyedQuotas> quotas;  ///< of the local file systems whose files are copied
  bool scanComplete = false;           ///< every file was looked at
  long long largestUid = 0, largestGid = 0;
  std::string largestUidPath, largestGidPath;  ///< a file of that owner; or /etc/passwd
  std::vector<std::string> immutableFiles;     ///< the first few
  long long immutableCount = 0;
  std::vector<SwapFile> swapFiles;
  long long lastlogBytes = 0, lastlogAllocated = 0;
  std::vector<std::string> nestedStorage;    ///< of container engines and snap, not empty
  long long processors = 0;                  ///< 0: not known
  long long systemdVersion = 0;              ///< 0: the server does not run systemd
  std::vector<std::string> initScripts;      ///< names in /etc/init.d
  std::vector<std::string> runningServices;  ///< those of them that run
};

struct SurveyRequest {
  std::vector<std::string> excludes;  ///< patterns that will not be copied
  long long timeout = 5;              ///< seconds that looking at files may take
};

}  // namespace agent

#endif
