// The private area of a container, and what a failed migration left of one.
#ifndef QX_MIGRATE_PRIVATE_AREA_H
#define QX_MIGRATE_PRIVATE_AREA_H

#include <string>

namespace P2V {

/// Where finish puts the area of a failed migration aside, and where createDstSrv
/// looks for one to go on with.
std::string keptArea(const std::string& area);

/// The name of the OS template that an area was made from, kept in a file inside
/// it. Empty when there is none. Writing gives no error: an area without a name is
/// only copied anew by a later attempt.
std::string readTemplateMarker(const std::string& area);
void writeTemplateMarker(const std::string& area, const std::string& templateName);

}  // namespace P2V

#endif
