// The resolver's configuration, /etc/resolv.conf.
#ifndef QX_HWCALC_RESOLVER_H
#define QX_HWCALC_RESOLVER_H

#include <list>
#include <string>
#include <utility>

namespace hwcalc {

/// Nameservers and search domains in the file's text, in order. Other settings
/// ("domain" too), comments and lines of one word are ignored.
std::pair<std::list<std::string>, std::list<std::string>> parseResolverSettings(
    const std::string& text);

}  // namespace hwcalc

#endif
