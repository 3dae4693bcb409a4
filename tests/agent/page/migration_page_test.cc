#include "agent/page/migration_page.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/process_identity.h"

using agent::migrationPage;
using host::MigrationState;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

namespace {

host::MigrationJournal migrated(MigrationState state = MigrationState::kSucceeded) {
  host::MigrationJournal journal{"101-20261121T222125Z", {}};
  host::MigrationRecord& record = journal.record;
  record.ctid = 101;
  record.source = "root@old";
  record.hostname = "mail";
  record.distribution = "debian-12";
  record.excludes = {"/srv/backup/*"};
  record.services = {"nginx", "cron"};
  record.begun = "2026-11-21T22:21:25Z";
  record.updated = "2026-11-21T22:22:41Z";
  record.bytes = 3LL << 29;
  record.files = 12229;
  record.state = state;
  record.stages = {
      {"create", "2026-11-21T22:21:25Z", 0, 0},   {"create", "2026-11-21T22:21:25Z", 0, 0},
      {"rSync", "2026-11-21T22:21:25Z", 63, 0},   {"stopServices", "2026-11-21T22:22:28Z", 2, 0},
      {"rSync2", "2026-11-21T22:22:30Z", 9.5, 0}, {"finish", "2026-11-21T22:22:40Z", 0.25, 0},
      {"finish", "2026-11-21T22:22:40Z", 0.25, 0}};
  record.resources = {{"numproc", 143, {258, 286, true}},
                      {"privvmpages", 1000, {2000, 2000, true}},
                      {"numiptent", 24, {host::kUnlimited, host::kUnlimited, true}},
                      {"slmmemorylimit", std::nullopt, {1 << 30, 1 << 30, true}}};
  record.warnings = {"the clock is slow"};
  record.texts = {"first", "second"};
  return journal;
}

host::MigrationJournal failedMigration() {
  host::MigrationJournal journal = migrated(MigrationState::kFailed);
  journal.record.stages[4].result = -1;
  journal.record.failedStage = "rSync2";
  journal.record.error = "the disk is full\nrsync ended with 11";
  return journal;
}

// Between two texts of the page.
std::string partOf(const std::string& page, const std::string& begin, const std::string& end) {
  const size_t at = page.find(begin);
  const size_t last = page.find(end, at);
  EXPECT_NE(last, page.npos) << begin << " ... " << end;
  return at == page.npos || last == page.npos ? "" : page.substr(at, last - at);
}

TEST(MigrationPage, TellsWhatWasMigratedWhereAndHowItEnded) {
  const std::string page = migrationPage(migrated());
  EXPECT_THAT(page, HasSubstr("<p class=\"standing succeeded\">succeeded</p>"
                              "<h1>Migration of root@old into container 101</h1>"
                              "<p class=\"ending\">The container is complete.</p>"));
  EXPECT_THAT(page, HasSubstr("<dt>Duration</dt><dd><strong>1 minute 15 seconds</strong>"));
  EXPECT_THAT(page, HasSubstr("<dt>Outage</dt><dd><strong>12 seconds</strong>"));
  EXPECT_THAT(page, HasSubstr("<strong>1.5 GiB</strong><span>in 12,229 files, as the plan"));
  EXPECT_THAT(page, HasSubstr("<dt>Container</dt><dd>101, mail</dd>"));
  EXPECT_THAT(page, HasSubstr("<dt>Distribution</dt><dd>debian-12</dd>"));
  EXPECT_THAT(page, HasSubstr("<dt>Begun</dt><dd>2026-11-21 22:21:25 UTC</dd>"));
  EXPECT_THAT(page, HasSubstr("<li>/srv/backup/*</li>"));
  EXPECT_THAT(page, HasSubstr("<li>the clock is slow</li>"));
  EXPECT_THAT(page, HasSubstr("<summary>The last 2 lines</summary>"));
  EXPECT_THAT(page, Not(HasSubstr("What to do")));
  EXPECT_THAT(page, Not(HasSubstr("What failed")));
}

TEST(MigrationPage, LoadsNothingAndRunsNothing) {
  const std::string page = migrationPage(migrated());
  EXPECT_THAT(page, HasSubstr("<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\">"
                              "<meta http-equiv=\"Content-Security-Policy\" "
                              "content=\"default-src &#39;none&#39;; "));
  EXPECT_THAT(page, HasSubstr("<meta name=\"viewport\""));
  for (const char* active :
       {"<script", "<img", "<link", "<iframe", "href=", "src=", "url(", "@import"}) {
    EXPECT_THAT(page, Not(HasSubstr(active)));
  }
}

TEST(MigrationPage, TheTimelineMarksTheOutageAndItsTableHasTheSameFigures) {
  const std::string page = migrationPage(migrated());
  const std::string chart = partOf(page, "<svg role=\"img\"", "</svg>");
  EXPECT_THAT(chart, HasSubstr("aria-labelledby=\"stages-title stages-desc\""));
  EXPECT_THAT(chart, HasSubstr("Services were down from the stage &quot;stop the services&quot; "
                               "on, for 12 seconds."));
  // 63 of 75 seconds had passed.
  EXPECT_THAT(chart, HasSubstr("<rect class=\"down\" x=\"84.000%\" y=\"0\" width=\"16.000%\""));
  EXPECT_THAT(chart, HasSubstr("<rect class=\"bar\" x=\"0.000%\" y=\"105\" width=\"84.000%\""));
  EXPECT_THAT(chart,
              HasSubstr("<rect class=\"bar out\" x=\"86.667%\" y=\"165\" width=\"12.667%\""));
  const std::string table = partOf(page, "<table class=\"times\">", "</table>");
  EXPECT_THAT(table,
              HasSubstr("<th scope=\"row\">open a session on the server <code>create</code>"));
  EXPECT_THAT(table, HasSubstr("<th scope=\"row\">open a session here <code>create</code>"));
  EXPECT_THAT(table, HasSubstr("copy what has changed <code>rSync2</code></th>"
                               "<td>2026-11-21 22:22:30 UTC</td><td>9.5 s</td>"));
}

TEST(MigrationPage, WithoutServicesToStopThereIsNoOutage) {
  host::MigrationJournal journal = migrated();
  journal.record.services.clear();
  const std::string page = migrationPage(journal);
  EXPECT_THAT(page, HasSubstr("<dt>Outage</dt><dd><strong>none</strong>"));
  EXPECT_THAT(page, Not(HasSubstr("class=\"down\"")));
}

TEST(MigrationPage, AnOutageOfServicesThatWereNotAllStoppedIsNotKnown) {
  host::MigrationJournal journal = failedMigration();
  journal.record.stages[3].result = 1;
  EXPECT_THAT(migrationPage(journal), HasSubstr("<dt>Outage</dt><dd><strong>not known</strong>"));
  journal.record.stages.resize(3);
  EXPECT_THAT(migrationPage(journal), HasSubstr("<dt>Outage</dt><dd><strong>none</strong>"));
}

TEST(MigrationPage, ResourcesAreBarsOfOneScaleAndFiguresInATable) {
  const std::string page = migrationPage(migrated());
  const std::string chart =
      partOf(page, "<svg role=\"img\" width=\"100%\" height=\"174\"", "</svg>");
  // 143 of 286.
  EXPECT_THAT(chart,
              HasSubstr("<rect class=\"bar measured\" x=\"0.000%\" y=\"22\" width=\"30.000%\""));
  EXPECT_THAT(chart,
              HasSubstr("<rect class=\"bar limit\" x=\"0.000%\" y=\"38\" width=\"60.000%\""));
  EXPECT_THAT(chart, HasSubstr(">measured 3.9 MiB</text>"));
  EXPECT_THAT(chart, HasSubstr(">unlimited</text>"));
  const std::string table = partOf(page, "<table class=\"limits\">", "</table>");
  EXPECT_THAT(table, HasSubstr("processes and threads <code>numproc</code></th><td>143</td>"
                               "<td>soft 258, hard 286</td><td>the kernel</td>"));
  EXPECT_THAT(table, HasSubstr("<td>3.9 MiB</td><td>7.8 MiB</td><td>nobody</td>"));
  EXPECT_THAT(table, HasSubstr("<td>24</td><td>unlimited</td><td>nobody</td>"));
  EXPECT_THAT(table, HasSubstr("<td>computed from memory and buffers</td><td>1.0 GiB</td>"));
}

TEST(MigrationPage, AnOlderJournalHasNoResourcesAndThePageSaysSo) {
  host::MigrationJournal journal = migrated();
  journal.record.resources.clear();
  const std::string page = migrationPage(journal);
  EXPECT_THAT(page, HasSubstr("The journal has no figures of resources"));
  EXPECT_THAT(page, Not(HasSubstr("class=\"limits\"")));
}

TEST(MigrationPage, AFailureSaysWhereWhatAndWhatToDo) {
  host::MigrationJournal journal = failedMigration();
  journal.record.keptArea = "/var/lib/qx/private/101.migrated";
  const std::string page = migrationPage(journal);
  EXPECT_THAT(page, HasSubstr("<p class=\"standing failed\">"));
  EXPECT_THAT(page, HasSubstr("<p>Stage <code>rSync2</code>:</p><p class=\"failure\">the disk is "
                              "full<br>rsync ended with 11</p>"));
  EXPECT_THAT(page, HasSubstr("Mend what the failure names, and give the same command again."));
  EXPECT_THAT(page, HasSubstr("kept in /var/lib/qx/private/101.migrated: the next attempt"));
  EXPECT_THAT(page, HasSubstr("until the server had started its services again"));
  EXPECT_THAT(page, Not(HasSubstr("The server could not be told")));
  EXPECT_THAT(page, HasSubstr("<tspan dx=\"8\">9.5 s, failed</tspan>"));
}

TEST(MigrationPage, AServerThatCouldNotBeToldUndoesItsPartByItself) {
  host::MigrationJournal journal = failedMigration();
  journal.record.stages.back().result = -1;
  const std::string page = migrationPage(journal);
  EXPECT_THAT(page, HasSubstr("The server could not be told: it undoes its part by itself"));
  EXPECT_THAT(page, HasSubstr("and longer: the server could not be told"));
}

TEST(MigrationPage, AContainerThatTheServerDoesNotKnowOfIsThere) {
  host::MigrationJournal journal = migrated();
  journal.record.stages.back().result = -1;
  journal.record.failedStage = "after tuneDstSrv";
  journal.record.error = "connection lost";
  const std::string page = migrationPage(journal);
  EXPECT_THAT(page, HasSubstr("but the server could not be told so"));
  EXPECT_THAT(page, HasSubstr("&#39;qxctl destroy 101&#39;"));
  EXPECT_THAT(page, HasSubstr("connection lost"));
}

TEST(MigrationPage, EachOtherWayToEndHasItsWordsAndItsAdvice) {
  EXPECT_THAT(migrationPage(migrated(MigrationState::kCancelled)),
              AllOf(HasSubstr("standing cancelled"), HasSubstr("begins the migration again")));
  EXPECT_THAT(migrationPage(migrated(MigrationState::kCleaned)),
              AllOf(HasSubstr("standing cleaned"), HasSubstr("was dealt with"),
                    HasSubstr("The server, which was not told")));
  host::MigrationJournal journal = migrated(MigrationState::kRunning);
  journal.record.stages.back().result.reset();
  EXPECT_THAT(migrationPage(journal),
              AllOf(HasSubstr("standing interrupted"), HasSubstr("qxmigrate clean 101"),
                    HasSubstr("<span>and longer: the last stage is not in it</span>")));
  journal.record.process = host::thisProcess();
  EXPECT_THAT(migrationPage(journal), AllOf(HasSubstr("standing running"), HasSubstr("so far"),
                                            Not(HasSubstr("qxmigrate clean"))));
}

TEST(MigrationPage, WhatIsNotAsOnTheServerIsListed) {
  host::MigrationJournal journal = migrated();
  journal.record.leftOut.add("/srv/a", "cannot be read");
  journal.record.leftOut.count = 12;
  EXPECT_THAT(migrationPage(journal),
              AllOf(HasSubstr("The container is there; some files are not."),
                    HasSubstr("<th scope=\"row\">/srv/a</th><td>cannot be read</td>"),
                    HasSubstr("And 11 more that are not listed.")));
}

TEST(MigrationPage, NothingThatAServerSaysIsMarkup) {
  const std::string evil = "</title></style><script>alert(1)</script><img src=x onerror='a'>";
  host::MigrationJournal journal = failedMigration();
  host::MigrationRecord& record = journal.record;
  for (std::string* text : {&record.source, &record.hostname, &record.distribution,
                            &record.osTemplate, &record.privateArea, &record.begun, &record.updated,
                            &record.failedStage, &record.error, &record.keptArea}) {
    *text = evil;
  }
  record.services = record.excludes = record.warnings = record.texts = {evil};
  record.stages.push_back({evil, evil, 1, 0});
  record.resources.push_back({evil, 1, {1, 1, true}});
  record.leftOut.add("/srv/" + evil, evil);
  const std::string page = migrationPage(journal);
  EXPECT_THAT(page, Not(HasSubstr("<script")));
  EXPECT_THAT(page, Not(HasSubstr("<img")));
  EXPECT_EQ(page.find("</style>"), page.rfind("</style>"));
  EXPECT_THAT(page, Not(HasSubstr("</title></style>")));
  EXPECT_THAT(page, HasSubstr("&lt;script&gt;alert(1)"));
}

TEST(MigrationPage, OneThatEndedBeforeItBeganIsAPageToo) {
  host::MigrationJournal journal = migrated(MigrationState::kFailed);
  journal.record.stages.clear();
  EXPECT_THAT(migrationPage(journal), HasSubstr("<p>No stage had begun.</p>"));
}

}  // namespace
