#include "platform/EntryStatus.h"

#include <fcntl.h>

#include <cerrno>

namespace kavaro {

int readStatus(int folder, const char* name, EntryStatus* status) {
    constexpr int kFlags = AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT | AT_EMPTY_PATH;
    constexpr unsigned kMask = STATX_TYPE | STATX_MODE | STATX_UID | STATX_INO | STATX_MNT_ID;
    struct statx record {};
    if (statx(folder, name, kFlags, kMask, &record) != 0) return errno;
    *status = EntryStatus();
    status->mode = record.stx_mode;
    status->owner = record.stx_uid;
    status->deviceMajor = record.stx_dev_major;
    status->deviceMinor = record.stx_dev_minor;
    status->inode = record.stx_ino;
    if ((record.stx_mask & STATX_MNT_ID) != 0) status->mount = record.stx_mnt_id;
    status->isMountRoot = (record.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0;
    return 0;
}

}  // namespace kavaro
