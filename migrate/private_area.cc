#include "migrate/private_area.h"

#include <fcntl.h>

#include "expand/files.h"

namespace P2V {

namespace {

constexpr unsigned kMarkerMode = 0644;

std::string markerPath(const std::string& area) { return area + "/" + ".ostemplate"; }

}  // namespace

std::string keptArea(const std::string& area) { return area + ".migrated"; }

std::string readTemplateMarker(const std::string& area) {
  std::string name;
  return Expand::get_file(markerPath(area), name) == 0 ? name : "";
}

void writeTemplateMarker(const std::string& area, const std::string& templateName) {
  Expand::put_file(markerPath(area), templateName, O_CREAT | O_TRUNC, kMarkerMode);
}

}  // namespace P2V
