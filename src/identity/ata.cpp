#include "identity/ata.h"

#include <linux/hdreg.h>
#include <sys/ioctl.h>

namespace torvane {

bool read_ata_identity(int fd, AtaIdentity &identity) noexcept {
    identity = AtaIdentity{};
    const bool answered = ioctl(fd, HDIO_GET_IDENTITY, identity.bytes) == 0;
    identity.bytes[sizeof identity.bytes - 1] = '\0';
    return answered;
}

} // namespace torvane
