// What the page of a migration says, but for the record's own texts: all its sentences.
#ifndef QX_AGENT_PAGE_PAGE_TEXT_H
#define QX_AGENT_PAGE_PAGE_TEXT_H

#include <string>
#include <vector>

#include "host/migration_record.h"

namespace agent::page_text {

inline constexpr char kWhatFailed[] = "What failed";
inline constexpr char kWhatToDo[] = "What to do";
inline constexpr char kFacts[] = "What was migrated";
inline constexpr char kTimeline[] = "The stages";
inline constexpr char kResources[] = "Resources";
inline constexpr char kExcludes[] = "Left out on purpose";
inline constexpr char kLeftOut[] = "Not as on the server";
inline constexpr char kLeftOutTable[] = "What the last copy could not bring over";
inline constexpr char kWarnings[] = "Warnings of the plan";
inline constexpr char kTexts[] = "What was said meanwhile";
inline constexpr char kNone[] = "Nothing is recorded.";

inline constexpr char kNoStages[] = "No stage had begun.";
inline constexpr char kOutage[] = "outage";
inline constexpr char kTimelineTitle[] = "How long each stage took";
inline constexpr char kTimelineTable[] = "The stages as a table";

inline constexpr char kNoResources[] =
    "The journal has no figures of resources: nothing was measured (--no-measure), or an older "
    "qxmigrate wrote it.";
inline constexpr char kResourcesTitle[] = "What was measured, and what the container has got";
inline constexpr char kResourcesScale[] =
    "For each resource, the upper bar is what was measured on the server before the copy, the "
    "lower one the limit in the container's configuration. Each pair has a scale of its own, in "
    "which the longer bar is full.";
inline constexpr char kResourcesHeld[] =
    "Who holds a limit: the kernel, the container's file system where it has one of its own, the "
    "disk quotas; or nobody, where today's kernels have no counterpart.";

/// The title, and the heading.
std::string title(const host::MigrationRecord& record);

/// How it ended, a sentence or two.
std::string ending(const host::MigrationRecord& record);

/// A value and a remark.
struct Figure {
  std::string value, remark;
};
Figure duration(const host::MigrationRecord& record);
Figure outage(const host::MigrationRecord& record);
Figure copied(const host::MigrationRecord& record);

/// What to do now, in paragraphs; none when all is well.
std::vector<std::string> advice(const host::MigrationRecord& record);

/// The stages by what they do; by their names, where that is not known.
std::vector<std::string> stages(const host::MigrationRecord& record);
/// "9.5 s", and whether it failed or has not ended.
std::string stageTime(const host::MigrationStage& stage);

/// What the chart of the stages shows, for those who do not see it.
std::string timelineSummary(const host::MigrationRecord& record);

/// What a resource is for people, as "open files".
std::string resource(const host::ResourceFigures& figures);
/// "12,345", "1.5 GiB", "unlimited".
std::string amount(const host::ResourceFigures& figures, uint64_t value);
/// The same for what was measured, or what the limit is computed from.
std::string measured(const host::ResourceFigures& figures);
/// The limit, or the soft and the hard one.
std::string assigned(const host::ResourceFigures& figures);
std::string heldBy(const host::ResourceFigures& figures);

/// Of files that are left out, how many are not listed; empty when all are.
std::string unlisted(const host::CopyReport& report);

/// Of the texts: "The last 3 lines".
std::string lineCount(const host::MigrationRecord& record);

/// "2026-11-21 22:21:25 UTC" of a time in a journal; another text is shown as it is.
std::string moment(const std::string& time);

/// Where the page comes from.
std::string colophon(const std::string& name, const host::MigrationRecord& record);

}  // namespace agent::page_text

#endif
