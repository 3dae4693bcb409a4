// The drawings of the page of a migration: SVG whose bars grow with the page's width and
// whose letters do not.
#ifndef QX_AGENT_PAGE_CHARTS_H
#define QX_AGENT_PAGE_CHARTS_H

#include "agent/page/html.h"
#include "host/migration_record.h"

namespace agent {

/// A bar for each stage, one after the other, and the outage.
Html timelineChart(const host::MigrationRecord& record);

/// Two bars for each resource that was measured: what it was, and the limit.
Html resourceChart(const host::MigrationRecord& record);

}  // namespace agent

#endif
