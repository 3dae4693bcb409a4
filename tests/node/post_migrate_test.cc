// The post-migration script, on small trees of known content: what it makes of
// them is compared with files in golden/, and a second run changes nothing.
//
// QX_UPDATE_GOLDEN=1 in the environment writes the golden files anew.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>

#include "host/file.h"
#include "host/text.h"
#include "node_test/system_tree.h"
#include "support/scratch_host.h"

namespace {

namespace fs = std::filesystem;
using test_support::ScratchHost;
using testing::HasSubstr;

constexpr char kScript[] = QX_SCRIPTS_DIR "/debian-post-migrate.sh";
constexpr char kGoldenDir[] = QX_SOURCE_DIR "/tests/node/golden/";

// Everything below /etc that the scratch host does not put there itself.
std::string snapshot() {
  std::vector<std::string> paths;
  for (const auto& entry : fs::recursive_directory_iterator("/etc")) {
    const std::string path = entry.path();
    if (!path.starts_with("/etc/alternatives") && path != "/etc/ld.so.cache" &&
        path != "/etc/passwd" && path != "/etc/group" && path != "/etc/nsswitch.conf") {
      paths.push_back(path);
    }
  }
  std::sort(paths.begin(), paths.end());
  std::string text;
  for (const std::string& path : paths) {
    if (fs::is_symlink(path)) {
      text += path + " -> " + fs::read_symlink(path).string() + "\n";
      continue;
    }
    struct stat st;
    EXPECT_EQ(stat(path.c_str(), &st), 0);
    text += host::textf("%s %04o\n", path.c_str(), st.st_mode & 07777);
    if (S_ISREG(st.st_mode)) {
      const std::string content = test_support::readFile(path);
      for (std::string_view line : host::splitLines(content)) {
        text += (line.empty() ? "  |" : "  | " + std::string(line)) + "\n";
      }
    }
  }
  return text;
}

struct Case {
  std::string name;
  ScratchHost host;                      // with the tree
  std::vector<std::string> units;        // that the distribution brings
  std::vector<std::string> environment;  // for env(1)
  std::string shell = "sh";
  std::string script = kScript;
};

// Returns what became of the tree, as seen from the machine.
std::string migrate(const Case& which) {
  char name[] = "/tmp/qx-golden.XXXXXX";
  const host::Fd result(mkostemp(name, O_CLOEXEC));
  unlink(name);
  which.host.run([&] {
    // Whatever units the machine has, the tree has just those it names.
    ASSERT_EQ(system("mkdir -p /usr/lib/systemd/system"), 0);
    ASSERT_EQ(mount("none", "/usr/lib/systemd/system", "tmpfs", 0, nullptr), 0);
    for (const std::string& unit : which.units) {
      host::replaceFile("/usr/lib/systemd/system/" + unit, "[Unit]\n", 0644);
    }
    std::vector<std::string> command{"/usr/bin/env", "-i", "PATH=/usr/sbin:/usr/bin"};
    command.insert(command.end(), which.environment.begin(), which.environment.end());
    command.push_back(which.shell);
    command.push_back(which.script);
    const node_test::ToolResult first = node_test::runTool(command);
    EXPECT_EQ(first.status, 0);
    EXPECT_EQ(first.out + first.err, "");
    const std::string once = snapshot();
    const node_test::ToolResult second = node_test::runTool(command);
    EXPECT_EQ(second.status, 0);
    EXPECT_EQ(second.out + second.err, "");
    EXPECT_EQ(snapshot(), once) << "the second run changed something";
    EXPECT_TRUE(host::writeAll(result.get(), once));
  });
  std::string text(static_cast<size_t>(lseek(result.get(), 0, SEEK_END)), '\0');
  EXPECT_EQ(pread(result.get(), text.data(), text.size(), 0), static_cast<ssize_t>(text.size()));
  return text;
}

void expectGolden(const Case& which) {
  const std::string text = migrate(which);
  const std::string golden = kGoldenDir + which.name + ".txt";
  if (getenv("QX_UPDATE_GOLDEN") != nullptr) host::replaceFile(golden, text, 0644);
  EXPECT_EQ(text, test_support::readFile(golden)) << golden;
}

Case debianWithIfupdown() {
  Case which{"debian-ifupdown", {}, {}, {}};
  which.host
      .file("/etc/fstab",
            "# <file system> <mount point> <type> <options>\n"
            "UUID=0a1b / ext4 errors=remount-ro 0 1\n"
            "/dev/mapper/vg-home  /home xfs defaults 0 2\n"
            "UUID=2c3d none swap sw 0 0\n"
            "tmpfs /tmp tmpfs nosuid 0 0\n"
            "/srv/data /var/www none bind 0 0\n"
            "nas:/export /mnt/nas nfs4 ro 0 0\n",
            0640)
      .file("/etc/hostname", "oldname\n")
      .file("/etc/hosts",
            "127.0.0.1\tlocalhost\n"
            "192.0.2.99\tweb.example.org web # the server's first address\n"
            "192.0.2.5 mail.example.org\n")
      .file("/etc/resolv.conf", "nameserver 192.0.2.254\n")
      .file("/etc/machine-id", "0123456789abcdef0123456789abcdef\n", 0444)
      .file("/etc/ssh/ssh_host_ed25519_key", "secret\n", 0600)
      .file("/etc/network/interfaces",
            "source /etc/network/interfaces.d/*\n\nauto lo\niface lo inet loopback\n\n"
            "allow-hotplug ens3\niface ens3 inet static\n\taddress 192.0.2.7/26\n"
            "\tgateway 192.0.2.1\n")
      .file("/etc/network/interfaces.d/dmz",
            "auto ens4\niface ens4 inet static\n  netmask 255.255.240.0\n  address 198.51.100.4\n")
      .file("/etc/udev/rules.d/70-persistent-net.rules", "ATTR{address}==\"x\", NAME=\"eth7\"\n")
      .file("/etc/initramfs-tools/update-initramfs.conf",
            "# Configuration\nupdate_initramfs=yes\nbackup_initramfs=no\n")
      .file("/etc/kernel/postinst.d/initramfs-tools", "#!/bin/sh\n", 0755)
      .file("/etc/kernel/postinst.d/apt-auto-removal", "#!/bin/sh\n", 0755)
      .file("/etc/kernel/postrm.d/zz-update-grub", "#!/bin/sh\n", 0755)
      .dir("/etc/apt/preferences.d")
      .file("/etc/systemd/system/smartd.service", "[Service]\nExecStart=/usr/local/bin/smartd\n")
      .symlink("/etc/systemd/system/getty.target.wants/getty@tty1.service",
               "/lib/systemd/system/getty@.service");
  which.units = {"getty@.service",       "console-getty.service", "systemd-udevd.service",
                 "fstrim.timer",         "mdmonitor.service",     "systemd-timesyncd.service",
                 "lvm2-monitor.service", "cron.service",          "systemd-journald-audit.socket"};
  which.environment = {"HOSTNAME=web.example.org", "IP_ADDRESS=192.0.2.7 198.51.100.4 2001:db8::7",
                       "NETIF=ifname=eth0,ip=192.0.2.7,ip=2001:db8::7;ifname=eth1,mac=02:00:00:00:"
                       "00:02,ip=198.51.100.4;ifname=eth2,ip=dhcp",
                       "NAMESERVER=192.0.2.53 2001:db8::53",
                       "SEARCHDOMAIN=example.org example.net"};
  return which;
}

TEST(DebianPostMigrate, SystemdAndIfupdown) { expectGolden(debianWithIfupdown()); }

TEST(DebianPostMigrate, AnotherShellDoesTheSame) {
  Case which = debianWithIfupdown();
  which.shell = "bash";
  expectGolden(which);
}

TEST(DebianPostMigrate, UbuntuWithNetplanAndResolvedLink) {
  Case which{"ubuntu-netplan", {}, {}, {}};
  which.host
      .file("/etc/fstab", "/dev/disk/by-uuid/0 / ext4 defaults 0 1\n/swap.img none swap sw 0 0\n")
      .symlink("/etc/resolv.conf", "../run/systemd/resolve/stub-resolv.conf")
      .file("/etc/hostname", "web\n")
      .file("/etc/hosts", "127.0.0.1 localhost\n127.0.1.1 web\n::1 ip6-localhost\n")
      .file("/etc/netplan/00-installer.yaml",
            "network:\n  version: 2\n  ethernets:\n    enp1s0:\n"
            "      addresses: [192.0.2.70/25, \"2001:db8::70/48\"]\n"
            "      routes:\n      - to: default\n        via: 192.0.2.126\n"
            "      gateway6: 2001:db8::1\n",
            0600)
      .symlink("/etc/systemd/system/multi-user.target.wants/systemd-networkd.service",
               "/lib/systemd/system/systemd-networkd.service");
  which.units = {"systemd-networkd.service", "systemd-networkd-wait-online.service",
                 "multipathd.service", "plymouth-start.service"};
  which.environment = {"HOSTNAME=web", "NAMESERVER=192.0.2.53",
                       "NETIF=ifname=eth0,ip=192.0.2.70,ip=2001:db8::70"};
  expectGolden(which);
}

TEST(DebianPostMigrate, OldSystemWithInittabAndInitScripts) {
  Case which{"debian-sysvinit", {}, {}, {}};
  which.host
      .file("/etc/inittab",
            "id:2:initdefault:\n1:2345:respawn:/sbin/getty 38400 tty1\n"
            "2:23:respawn:/sbin/getty 38400 tty2\n#T0:23:respawn:/sbin/getty -L ttyS0 9600 vt100\n"
            "ca:12345:ctrlaltdel:/sbin/shutdown -t1 -a -r now\n")
      .file("/etc/mtab", "/dev/hda1 / ext3 rw 0 0\n")
      .file("/etc/fstab", "proc /proc proc defaults 0 0\n/dev/hda1 / ext3 defaults,usrquota 0 1\n")
      .file("/etc/network/interfaces",
            "auto lo eth0\niface lo inet loopback\niface eth0 inet static\n"
            "address 192.0.2.7\nnetmask 255.255.255.192\ngateway 192.0.2.1\n")
      .symlink("/etc/rcS.d/S10checkroot.sh", "../init.d/checkroot.sh")
      .symlink("/etc/rcS.d/S03udev", "../init.d/udev")
      .symlink("/etc/rc2.d/S20smartmontools", "../init.d/smartmontools")
      .symlink("/etc/rc2.d/S20ssh", "../init.d/ssh")
      .symlink("/etc/rc0.d/K20smartmontools", "../init.d/smartmontools");
  which.environment = {"HOSTNAME=old.example.org", "IP_ADDRESS=192.0.2.7"};
  expectGolden(which);
}

TEST(DebianPostMigrate, NetworkManagerAlone) {
  Case which{"debian-network-manager", {}, {}, {}};
  which.host.file("/etc/network/interfaces", "auto lo\niface lo inet loopback\n")
      .file("/etc/NetworkManager/system-connections/Wired.nmconnection",
            "[connection]\nid=Wired\n[ipv4]\naddress1=192.0.2.7/23,192.0.2.1\n", 0600)
      .symlink("/etc/systemd/system/multi-user.target.wants/NetworkManager.service",
               "/lib/systemd/system/NetworkManager.service");
  which.environment = {"IP_ADDRESS=192.0.2.7 2001:db8::7/56"};
  expectGolden(which);
}

TEST(DebianPostMigrate, AddressesOfAnotherNetworkTakeNoGatewayAlong) {
  Case which{"debian-networkd", {}, {}, {}};
  which.host
      .file("/etc/systemd/network/wan.network",
            "[Match]\nName=en*\n[Network]\nAddress=192.0.2.70/24\nGateway=192.0.2.1\n")
      .symlink("/etc/systemd/system/multi-user.target.wants/systemd-networkd.service",
               "/lib/systemd/system/systemd-networkd.service");
  which.environment = {"NETIF=ifname=eth0,ip=192.0.2.7"};
  expectGolden(which);
}

TEST(DebianPostMigrate, HooksOfOtherPackagesAreNoIfupdown) {
  Case which{"debian-no-ifupdown", {}, {}, {}};
  which.host.file("/etc/network/if-up.d/postfix", "#!/bin/sh\n", 0755);
  which.units = {"systemd-networkd.service", "systemd-networkd-wait-online.service"};
  which.environment = {"NETIF=ifname=eth0,ip=192.0.2.7/24,ip=2001:db8::7/64"};
  expectGolden(which);
}

TEST(DebianPostMigrate, WithoutEnvironmentNamesAndNetworkStay) {
  Case which{"debian-no-environment", {}, {}, {}};
  which.host.file("/etc/network/interfaces", "auto eth0\niface eth0 inet dhcp\n")
      .file("/etc/hostname", "web\n")
      .file("/etc/resolv.conf", "nameserver 192.0.2.1\n");
  expectGolden(which);
}

std::string scriptOf(const char* family) {
  return QX_SCRIPTS_DIR "/" + std::string(family) + "-post-migrate.sh";
}

TEST(RedHatPostMigrate, NetworkManagerProfilesOfRelease9) {
  Case which{"redhat-9", {}, {}, {}, "sh", scriptOf("redhat")};
  which.host
      .file("/etc/fstab",
            "UUID=0a1b / xfs defaults 0 0\n/dev/mapper/rhel-swap none swap defaults 0 0\n")
      .file("/etc/hostname", "old.example.org\n")
      .file("/etc/hosts", "127.0.0.1 localhost localhost.localdomain\n::1 localhost\n")
      .file("/etc/selinux/config", "# Policy\nSELINUX=enforcing\nSELINUXTYPE=targeted\n")
      .file("/etc/dnf/dnf.conf", "[main]\ngpgcheck=1\nbest=True\n")
      .file("/etc/kernel/install.d/20-grub.install", "#!/bin/sh\n", 0755)
      .file("/etc/sysconfig/kernel", "UPDATEDEFAULT=yes\nDEFAULTKERNEL=kernel-core\n")
      .file("/etc/sysconfig/network-scripts/readme-ifcfg-rh.txt", "Profiles moved.\n")
      .file("/etc/NetworkManager/system-connections/enp1s0.nmconnection",
            "[connection]\nid=enp1s0\ntype=ethernet\n[ipv4]\nmethod=manual\n"
            "address1=192.0.2.7/26,192.0.2.1\n",
            0600)
      .symlink("/etc/systemd/system/multi-user.target.wants/NetworkManager.service",
               "/usr/lib/systemd/system/NetworkManager.service")
      .symlink("/etc/systemd/system/getty.target.wants/getty@tty1.service",
               "/usr/lib/systemd/system/getty@.service");
  which.units = {"NetworkManager.service", "NetworkManager-wait-online.service",
                 "getty@.service",         "console-getty.service",
                 "chronyd.service",        "kdump.service",
                 "microcode.service",      "lvm2-monitor.service",
                 "tuned.service",          "rngd.service",
                 "auditd.service",         "irqbalance.service",
                 "crond.service"};
  which.environment = {"HOSTNAME=web.example.org", "NETIF=ifname=eth0,ip=192.0.2.7",
                       "NAMESERVER=192.0.2.53"};
  expectGolden(which);
}

TEST(RedHatPostMigrate, InterfaceFilesOfRelease7) {
  Case which{"centos-7", {}, {}, {}, "sh", scriptOf("redhat")};
  which.host.file("/etc/fstab", "/dev/sda1 / xfs defaults 0 0\n")
      .file("/etc/yum.conf", "[main]\nkeepcache=0\n")
      .file("/etc/sysconfig/network", "NETWORKING=yes\nGATEWAY=192.0.2.1\n")
      .file("/etc/sysconfig/network-scripts/ifcfg-lo", "DEVICE=lo\nIPADDR=127.0.0.1\n")
      .file("/etc/sysconfig/network-scripts/ifcfg-eno1",
            "NAME=eno1\nONBOOT=yes\nPREFIX=26\nIPADDR=192.0.2.7\nGATEWAY=192.0.2.1\n")
      .file("/etc/sysconfig/network-scripts/route-eno1", "198.51.100.0/24 via 192.0.2.2\n");
  which.units = {"firewalld.service", "smartd.service", "multipathd.service"};
  which.environment = {"HOSTNAME=web",
                       "NETIF=ifname=eth0,ip=192.0.2.7,ip=192.0.2.8/26,ip="
                       "2001:db8::7/64,ip=2001:db8::8/64"};
  expectGolden(which);
}

TEST(RedHatPostMigrate, UpstartOfRelease6) {
  Case which{"centos-6", {}, {}, {}, "sh", scriptOf("redhat")};
  which.host.file("/etc/inittab", "id:3:initdefault:\n")
      .file("/etc/init/start-ttys.conf", "start on stopped rc RUNLEVEL=[2345]\n")
      .file("/etc/init/serial.conf", "start on fedora.serial-console-available\n")
      .file("/etc/sysconfig/network", "NETWORKING=yes\nHOSTNAME=old.example.org\n")
      .file("/etc/sysconfig/network-scripts/ifcfg-eth0",
            "DEVICE=eth0\nIPADDR=192.0.2.7\nNETMASK=255.255.255.192\n")
      .symlink("/etc/rc3.d/S13irqbalance", "../init.d/irqbalance")
      .symlink("/etc/rc3.d/S26haldaemon", "../init.d/haldaemon")
      .symlink("/etc/rc3.d/S55sshd", "../init.d/sshd");
  which.environment = {"HOSTNAME=web.example.org", "IP_ADDRESS=192.0.2.7", "GATEWAY=192.0.2.62"};
  expectGolden(which);
}

TEST(RedHatPostMigrate, FedoraWithNetworkdOfItsOwn) {
  Case which{"fedora", {}, {}, {}, "sh", scriptOf("redhat")};
  which.host.file("/etc/fstab", "UUID=1 / btrfs subvol=root 0 0\n")
      .file("/etc/systemd/network/10-wan.network", "[Network]\nAddress=192.0.2.7/24\n")
      .symlink("/etc/systemd/system/multi-user.target.wants/systemd-networkd.service",
               "/usr/lib/systemd/system/systemd-networkd.service");
  which.units = {"systemd-networkd.service", "systemd-networkd-wait-online.service",
                 "zramswap.service", "udisks2.service"};
  which.environment = {"HOSTNAME=fedora", "IP_ADDRESS=192.0.2.7", "GATEWAY=192.0.2.1"};
  expectGolden(which);
}

TEST(RedHatPostMigrate, MageiaHoldsKernelsBackInTheListOfItsOwnTool) {
  Case which{"mageia-9", {}, {}, {}, "sh", scriptOf("redhat")};
  which.host.file("/etc/fstab", "UUID=1 / ext4 relatime 1 1\n")
      .file("/etc/urpmi/skip.list", "# What urpmi --auto-select leaves alone\nfirefox\n")
      .file("/etc/sysconfig/network", "NETWORKING=yes\n")
      .file("/etc/sysconfig/network-scripts/ifcfg-enp1s0",
            "DEVICE=enp1s0\nBOOTPROTO=static\nIPADDR=192.0.2.7\nNETMASK=255.255.255.0\n"
            "GATEWAY=192.0.2.1\n");
  which.units = {"network.service", "lvm2-monitor.service", "crond.service"};
  which.environment = {"HOSTNAME=mageia.example.org", "NETIF=ifname=eth0,ip=192.0.2.7"};
  expectGolden(which);
}

TEST(SusePostMigrate, WickedOfRelease15) {
  Case which{"sles-15", {}, {}, {}, "sh", scriptOf("suse")};
  which.host.file("/etc/fstab", "UUID=1 / btrfs defaults 0 0\nUUID=2 swap swap defaults 0 0\n")
      .file("/etc/hostname", "old\n")
      .symlink("/etc/HOSTNAME", "hostname")
      .file("/etc/hosts", "127.0.0.1 localhost\n")
      .file("/etc/sysconfig/bootloader", "LOADER_TYPE=\"grub2\"\nTRUSTED_BOOT=\"no\"\n")
      .file("/etc/zypp/locks", "\ntype: package\nsolvable_name: vim\n")
      .file("/etc/sysconfig/network/config",
            "NETCONFIG_DNS_STATIC_SEARCHLIST=\"\"\nNETCONFIG_DNS_STATIC_SERVERS=\"192.0.2.2\"\n")
      .file("/etc/sysconfig/network/ifcfg-lo", "IPADDR=127.0.0.1/8\n")
      .file("/etc/sysconfig/network/ifcfg-eth0",
            "BOOTPROTO='static'\nSTARTMODE='auto'\nIPADDR='192.0.2.7/26'\n")
      .file("/etc/sysconfig/network/routes", "default 192.0.2.1 - -\n");
  which.units = {"wicked.service",  "btrfs-scrub.timer",     "snapper-boot.timer",
                 "chronyd.service", "purge-kernels.service", "lvm2-monitor.service",
                 "smartd.service",  "console-getty.service"};
  which.environment = {"HOSTNAME=web.example.org",
                       "NETIF=ifname=eth0,ip=192.0.2.7,ip=192.0.2.8/26,ip=2001:db8::7/64",
                       "NAMESERVER=192.0.2.53", "SEARCHDOMAIN=example.org"};
  expectGolden(which);
}

TEST(SusePostMigrate, InitScriptsOfRelease11) {
  Case which{"sles-11", {}, {}, {}, "sh", scriptOf("suse")};
  which.host.file("/etc/HOSTNAME", "old.example.org\n")
      .file("/etc/inittab", "id:3:initdefault:\n1:2345:respawn:/sbin/mingetty --noclear tty1\n")
      .symlink("/etc/init.d/boot.d/S03boot.rootfsck", "../boot.rootfsck")
      .symlink("/etc/init.d/boot.d/S10boot.localnet", "../boot.localnet")
      .file("/etc/sysconfig/network/ifcfg-eth0", "IPADDR='192.0.2.7'\nNETMASK='255.255.255.192'\n");
  which.environment = {"HOSTNAME=web.example.org", "IP_ADDRESS=192.0.2.7"};
  expectGolden(which);
}

TEST(ArchPostMigrate, GetsNetworkd) {
  Case which{"arch", {}, {}, {}, "sh", scriptOf("arch")};
  which.host.file("/etc/fstab", "UUID=1 / ext4 rw 0 1\n")
      .file("/etc/pacman.conf", "[options]\nHoldPkg = pacman glibc\n\n[core]\n")
      .symlink("/etc/systemd/system/multi-user.target.wants/dhcpcd@ens3.service",
               "/usr/lib/systemd/system/dhcpcd@.service");
  which.units = {"systemd-networkd.service", "systemd-networkd-wait-online.service",
                 "dhcpcd.service", "systemd-timesyncd.service"};
  which.environment = {"HOSTNAME=web", "IP_ADDRESS=192.0.2.7/24", "GATEWAY=192.0.2.1 2001:db8::1"};
  expectGolden(which);
}

TEST(AlpinePostMigrate, OpenRcAndBusyBox) {
  Case which{"alpine", {}, {}, {}, "sh", scriptOf("alpine")};
  which.host.file("/etc/fstab", "/dev/vda3 / ext4 rw 0 1\n/dev/vda2 swap swap defaults 0 0\n")
      .file("/etc/hostname", "old\n")
      .file("/etc/hosts", "127.0.0.1 old localhost\n")
      .file("/etc/inittab",
            "::sysinit:/sbin/openrc sysinit\ntty1::respawn:/sbin/getty 38400 tty1\n"
            "::shutdown:/sbin/openrc shutdown\n")
      .file("/etc/rc.conf", "#rc_parallel=\"NO\"\nrc_sys=\"\"\n")
      .file("/etc/mkinitfs/mkinitfs.conf", "features=\"ata base ext4\"\n")
      .file("/etc/network/interfaces",
            "auto eth0\niface eth0 inet static\n\taddress 192.0.2.7/26\n\tgateway 192.0.2.1\n")
      .file("/etc/init.d/networking", "#!/sbin/openrc-run\n", 0755)
      .symlink("/etc/runlevels/boot/hwclock", "/etc/init.d/hwclock")
      .symlink("/etc/runlevels/boot/swap", "/etc/init.d/swap")
      .symlink("/etc/runlevels/default/chronyd", "/etc/init.d/chronyd")
      .symlink("/etc/runlevels/default/sshd", "/etc/init.d/sshd")
      .symlink("/etc/runlevels/sysinit/hwdrivers", "/etc/init.d/hwdrivers");
  which.environment = {"HOSTNAME=web.example.org", "NETIF=ifname=eth0,ip=192.0.2.7",
                       "NAMESERVER=192.0.2.53"};
  expectGolden(which);
}

// The script needs no more than these programs, and works where it is meant to.
TEST(DebianPostMigrate, RunsInAContainerThroughRunscript) {
  ScratchHost host;
  const std::string tree = "/var/lib/qx/private/101/fs";
  host.file("/etc/sysconfig/qx-scripts/101.conf",
            "HOSTNAME=\"web.example.org\"\nIP_ADDRESS=\"192.0.2.7\"\nNAMESERVER=\"192.0.2.53\"\n"
            "NETIF=\"ifname=eth0,ip=192.0.2.7\"\n")
      .file(tree + "/etc/fstab", "/dev/sda1 / ext4 defaults 0 1\n")
      .file(tree + "/etc/network/interfaces", "auto eth0\niface eth0 inet dhcp\n")
      .file(tree + "/etc/hosts", "127.0.0.1 localhost\n");
  host.run([&] {
    node_test::makeSystemTree(tree, {"awk", "cat", "chmod", "cmp", "cp", "dirname", "env", "grep",
                                     "ln", "mkdir", "mv", "readlink", "rm", "sed", "tr"});
    const node_test::ToolResult run =
        node_test::runTool({node_test::toolPath("qxctl"), "runscript", "101", kScript});
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out + run.err, "");
    EXPECT_EQ(test_support::readFile(tree + "/etc/fstab"), "#qx# /dev/sda1 / ext4 defaults 0 1\n");
    EXPECT_EQ(test_support::readFile(tree + "/etc/hostname"), "web\n");
    EXPECT_THAT(test_support::readFile(tree + "/etc/network/interfaces"),
                HasSubstr("address 192.0.2.7\n    netmask 255.255.255.0\n"));
    EXPECT_THAT(test_support::readFile(tree + "/etc/hosts"),
                HasSubstr("192.0.2.7 web.example.org web # qx\n"));
    EXPECT_FALSE(host::exists("/etc/qx-changes")) << "the host was edited";
  });
}

}  // namespace
