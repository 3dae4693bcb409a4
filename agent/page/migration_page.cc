#include "agent/page/migration_page.h"

#include <algorithm>

#include "agent/journal/journal_text.h"
#include "agent/page/charts.h"
#include "agent/page/html.h"
#include "agent/page/page_style.h"
#include "agent/page/page_text.h"
#include "host/text.h"

namespace agent {

namespace {

using host::MigrationRecord;

// Nothing but the style sheet inside of it.
constexpr char kPolicy[] =
    "default-src 'none'; style-src 'unsafe-inline'; base-uri 'none'; form-action 'none'";

Html section(const char* heading, const Html& content) {
  return plain("section", plain("h2", heading) + content);
}

Html paragraph(const Html& content) { return plain("p", content); }

Html note(const Html& content) { return element("p", {{"class", "note"}}, content); }

Html row(const Html& cells) { return plain("tr", cells); }

Html cell(const Html& content) { return plain("td", content); }

Html table(const char* kind, const char* caption, const std::vector<const char*>& titles,
           const Html& rows) {
  Html head;
  for (const char* const title : titles) head += element("th", {{"scope", "col"}}, title);
  return element("table", {{"class", kind}},
                 plain("caption", caption) + plain("thead", row(head)) + plain("tbody", rows));
}

// What stands for a row is its head.
Html rowHead(const Html& content) { return element("th", {{"scope", "row"}}, content); }

Html list(const char* kind, const std::vector<std::string>& texts) {
  if (texts.empty()) return paragraph(page_text::kNone);
  Html items;
  for (const std::string& text : texts) items += plain("li", linesOf(text));
  return element("ul", {{"class", kind}}, items);
}

Html figure(const char* name, const page_text::Figure& figure) {
  return plain("div", plain("dt", name) + plain("dd", plain("strong", figure.value) +
                                                          plain("span", figure.remark)));
}

Html fact(const char* name, const std::string& value) {
  if (value.empty()) return {};
  return plain("div", plain("dt", name) + plain("dd", value));
}

Html header(const MigrationRecord& record) {
  const std::string standing = standingOf(record);
  return plain("header", element("p", {{"class", "standing " + standing}}, standing) +
                             plain("h1", page_text::title(record)) +
                             element("p", {{"class", "ending"}}, page_text::ending(record)) +
                             element("dl", {{"class", "figures"}},
                                     figure("Duration", page_text::duration(record)) +
                                         figure("Outage", page_text::outage(record)) +
                                         figure("To copy", page_text::copied(record))));
}

Html failure(const MigrationRecord& record) {
  if (record.error.empty()) return {};
  return section(page_text::kWhatFailed,
                 paragraph("Stage " + Html(plain("code", record.failedStage)) + ":") +
                     element("p", {{"class", "failure"}}, linesOf(record.error)));
}

Html advice(const MigrationRecord& record) {
  Html paragraphs;
  for (const std::string& text : page_text::advice(record)) paragraphs += paragraph(text);
  return paragraphs.empty() ? Html() : section(page_text::kWhatToDo, paragraphs);
}

Html facts(const MigrationRecord& record) {
  const std::string container = std::to_string(record.ctid);
  return section(
      page_text::kFacts,
      element("dl", {{"class", "facts"}},
              fact("Server", record.source) +
                  fact("Container",
                       record.hostname.empty() ? container : container + ", " + record.hostname) +
                  fact("Distribution", record.distribution) + fact("Template", record.osTemplate) +
                  fact("Private area", record.privateArea) +
                  fact("Begun", page_text::moment(record.begun)) +
                  fact("Last written", page_text::moment(record.updated)) +
                  fact("Services to be stopped", host::joined(record.services, ", "))));
}

Html timeline(const MigrationRecord& record) {
  if (record.stages.empty()) return section(page_text::kTimeline, paragraph(page_text::kNoStages));
  const std::vector<std::string> names = page_text::stages(record);
  Html rows;
  for (size_t i = 0; i < names.size(); ++i) {
    const host::MigrationStage& stage = record.stages[i];
    rows += row(rowHead(names[i] + Html(" ") + plain("code", stage.name)) +
                cell(page_text::moment(stage.begun)) + cell(page_text::stageTime(stage)));
  }
  return section(
      page_text::kTimeline,
      timelineChart(record) + plain("details", plain("summary", page_text::kTimelineTable) +
                                                   table("times", page_text::kTimelineTitle,
                                                         {"Stage", "Begun", "Took"}, rows)));
}

Html resources(const MigrationRecord& record) {
  if (record.resources.empty()) {
    return section(page_text::kResources, paragraph(page_text::kNoResources));
  }
  Html rows;
  bool measured = false;
  for (const host::ResourceFigures& figures : record.resources) {
    measured = measured || figures.measured;
    rows += row(rowHead(page_text::resource(figures) + Html(" ") + plain("code", figures.name)) +
                cell(page_text::measured(figures)) + cell(page_text::assigned(figures)) +
                cell(page_text::heldBy(figures)));
  }
  Html chart;
  if (measured) chart = note(page_text::kResourcesScale) + resourceChart(record);
  return section(page_text::kResources,
                 chart +
                     table("limits", page_text::kResourcesTitle,
                           {"Resource", "Measured", "Limit", "Held by"}, rows) +
                     note(page_text::kResourcesHeld));
}

Html leftOut(const host::CopyReport& report) {
  if (report.isComplete()) return section(page_text::kLeftOut, paragraph(page_text::kNone));
  Html rows;
  for (const host::NotCopied& file : report.files) {
    rows += row(rowHead(file.path) + cell(file.reason));
  }
  Html content;
  if (!rows.empty()) content += table("files", page_text::kLeftOutTable, {"File", "Why"}, rows);
  const std::string more = page_text::unlisted(report);
  if (!more.empty()) content += paragraph(more);
  return section(page_text::kLeftOut, content);
}

Html texts(const MigrationRecord& record) {
  if (record.texts.empty()) return {};
  return section(
      page_text::kTexts,
      plain("details", plain("summary", page_text::lineCount(record)) + list("log", record.texts)));
}

}  // namespace

std::string migrationPage(const host::MigrationJournal& journal) {
  const MigrationRecord& record = journal.record;
  const Html head =
      element("meta", {{"charset", "utf-8"}}) +
      element("meta", {{"http-equiv", "Content-Security-Policy"}, {"content", kPolicy}}) +
      element("meta", {{"name", "viewport"}, {"content", "width=device-width, initial-scale=1"}}) +
      element("meta", {{"name", "color-scheme"}, {"content", "light dark"}}) +
      plain("title", page_text::title(record)) + styleElement(kPageStyle);
  const Html main =
      header(record) + failure(record) + advice(record) + facts(record) + timeline(record) +
      resources(record) + section(page_text::kExcludes, list("paths", record.excludes)) +
      leftOut(record.leftOut) + section(page_text::kWarnings, list("warnings", record.warnings)) +
      texts(record);
  const Html body =
      plain("main", main) + plain("footer", paragraph(page_text::colophon(journal.name, record)));
  return "<!DOCTYPE html>\n" +
         element("html", {{"lang", "en"}}, plain("head", head) + plain("body", body)).markup() +
         "\n";
}

}  // namespace agent
