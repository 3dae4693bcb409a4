# What root of a container tries against the host. Prints a line for each attempt: its
# name, a tab, "held" or "NOT HELD", a tab, and what happened. Perl is in every Debian.
use strict;
use warnings;
use Errno;

my $scratch = "/root/hostile.$$";
mkdir $scratch or die "cannot make $scratch: $!";

sub said { printf "%s\t%s\t%s\n", @_ }
sub outcome { my ($name, $through, $text) = @_; said($name, $through ? "NOT HELD" : "held", $text) }

# Whether a file of the host's can be written. What is written is what is read there.
sub writable {
  my ($name, $path, $value) = @_;
  if (!defined $value && open(my $in, '<', $path)) { $value = <$in> }
  my $through = open(my $file, '>', $path);
  $through &&= defined syswrite($file, $value // "");
  outcome($name, $through, $through ? "$path was written" : "$path: $!");
}

sub call {
  my ($name, @arguments) = @_;
  my $number = shift @arguments;
  my $result = syscall($number, @arguments);
  my $error = $!;
  # EPERM, ENOSYS, EACCES: refused before the arguments were looked at.
  my $held = $result < 0 && ($!{EPERM} || $!{ENOSYS} || $!{EACCES});
  outcome($name, !$held, $result < 0 ? "$error" : "returned $result");
}

# A mount that is harmless by itself; what can be done with it comes after.
sub mounts_for_more {
  my ($name, @command) = @_;
  my $done = system("@command 2>$scratch/err") == 0;
  said($name, $done ? "mounted" : "held", $done ? "see below" : reason());
  return $done;
}

sub reason {
  open(my $err, '<', "$scratch/err");
  my $text = <$err> // "";
  chomp $text;
  return $text;
}

sub mounts {
  my ($name, @command) = @_;
  my $through = system("@command 2>$scratch/err") == 0;
  outcome($name, $through, $through ? "mounted" : reason());
  return $through;
}

sub device {
  my ($name, $kind, $major, $minor) = @_;
  my $path = "$scratch/$name-$kind-$major-$minor";
  if (system("mknod $path $kind $major $minor 2>/dev/null") != 0) {
    return outcome("mknod and open $name", 0, "mknod refused");
  }
  my $through = open(my $in, '<', $path);
  outcome("mknod and open $name", $through, $through ? "was opened" : "made, but: $!");
  unlink $path;
}

writable("core_pattern", "/proc/sys/kernel/core_pattern");
writable("modprobe path", "/proc/sys/kernel/modprobe");
writable("sysrq-trigger", "/proc/sysrq-trigger", "h");
writable("uevent_helper", "/sys/kernel/uevent_helper");

mkdir "$scratch/proc";
if (mounts_for_more("a second /proc", "mount -t proc proc $scratch/proc")) {
  writable("core_pattern of a second /proc", "$scratch/proc/sys/kernel/core_pattern");
  writable("sysrq-trigger of a second /proc", "$scratch/proc/sysrq-trigger", "h");
  system("umount $scratch/proc");
}
if (mounts_for_more("/proc/sys made writable", "mount -o remount,rw,bind /proc/sys")) {
  writable("core_pattern once writable", "/proc/sys/kernel/core_pattern");
  system("mount -o remount,ro,bind /proc/sys");
}
mkdir "$scratch/fs";
for my $type (qw(debugfs tracefs securityfs devtmpfs)) {
  system("umount $scratch/fs") if mounts($type, "mount -t $type none $scratch/fs");
}
# The old hierarchy of devices, whose release_agent is a program that the host runs.
if (mounts_for_more("control groups", "mount -t cgroup -o devices none $scratch/fs")) {
  writable("release_agent", "$scratch/fs/release_agent");
  my ($own) = map { m{:devices:(.*)} } do { open(my $in, '<', "/proc/self/cgroup"); <$in> };
  writable("devices.allow", "$scratch/fs" . ($own // "") . "/devices.allow", "a");
  system("umount $scratch/fs");
}
device("disk", "b", 8, 0);
device("virtual disk", "b", 254, 0);
device("loop", "b", 7, 0);
device("memory", "c", 1, 1);
device("kernel messages", "c", 1, 11);
device("fuse control", "c", 10, 237);
call("bpf", 321, 5, 0, 0);
# The clock of a processor, for all that run on it; a version 0 record is 64 bytes long.
call("perf_event_open", 298, pack("L2 Q7", 1, 64, (0) x 7), -1, 0, -1, 0);
call("init_module", 175, "", 0, "");
call("kexec_load", 246, 0, 0, 0, 0);
call("open_by_handle_at", 304, -1, 0, 0);
call("iopl", 172, 3);
# Asks for leave, and then has nothing to set.
call("settimeofday", 164, 0, 0);
call("swapon", 167, "$scratch/none", 0);
rmdir "$scratch/$_" for qw(proc fs);
unlink "$scratch/err";
rmdir $scratch;
