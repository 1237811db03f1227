#include "platform/FileSystemType.h"

#include <linux/magic.h>
#include <sys/vfs.h>

#include <algorithm>
#include <iterator>

namespace kavaro {

namespace {

// Those without a name stand in no public header.
constexpr std::uint32_t kPseudoTypes[] = {
    PROC_SUPER_MAGIC,     SYSFS_MAGIC,          CGROUP_SUPER_MAGIC, CGROUP2_SUPER_MAGIC,  DEBUGFS_MAGIC,
    TRACEFS_MAGIC,        SECURITYFS_MAGIC,     PSTOREFS_MAGIC,     BPF_FS_MAGIC,         DEVPTS_SUPER_MAGIC,
    BINFMTFS_MAGIC,       EFIVARFS_MAGIC,       HUGETLBFS_MAGIC,    NSFS_MAGIC,           AUTOFS_SUPER_MAGIC,
    SELINUX_MAGIC,        SMACK_MAGIC,          XENFS_SUPER_MAGIC,  RDTGROUP_SUPER_MAGIC, USBDEVICE_SUPER_MAGIC,
    OPENPROM_SUPER_MAGIC, BINDERFS_SUPER_MAGIC, AAFS_MAGIC,
    0x62656570,  // configfs
    0x19800202,  // mqueue
    0x65735543,  // fusectl
    0x67596969,  // rpc_pipefs
    0x6e667364,  // nfsd
    0x0a647361,  // functionfs
    0xaee71ee7,  // gadgetfs
};

}  // namespace

bool isPseudoFileSystemType(std::uint32_t type) {
    return std::find(std::begin(kPseudoTypes), std::end(kPseudoTypes), type) != std::end(kPseudoTypes);
}

bool isOnPseudoFileSystem(int fd) {
    struct statfs about;
    if (fstatfs(fd, &about) != 0) return false;
    return isPseudoFileSystemType(static_cast<std::uint32_t>(about.f_type));
}

}  // namespace kavaro
