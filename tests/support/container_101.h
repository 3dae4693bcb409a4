// Where the files of the container are that most tests make, by default.
#ifndef QX_TESTS_SUPPORT_CONTAINER_101_H
#define QX_TESTS_SUPPORT_CONTAINER_101_H

namespace test_support {

inline constexpr char kConf[] = "/etc/sysconfig/qx-scripts/101.conf";
inline constexpr char kRoot[] = "/var/lib/qx/root/101";
inline constexpr char kArea[] = "/var/lib/qx/private/101";
inline constexpr char kTree[] = "/var/lib/qx/private/101/fs";

}  // namespace test_support

#endif
