// The identity page of an ATA drive (ACS-3 clause 7.12, IDENTIFY DEVICE) through HDIO_GET_IDENTITY.
#ifndef TORVANE_IDENTITY_ATA_H
#define TORVANE_IDENTITY_ATA_H

namespace torvane {

struct AtaIdentity {
    // The kernel's 512 bytes, and a terminator for texts that none of them ends.
    char bytes[512 + 1];

    const char *serial() const noexcept { return bytes + 20; }
    const char *model() const noexcept { return bytes + 54; }
};

// Fills a zeroed record; false when the drive has no such page.
bool read_ata_identity(int fd, AtaIdentity &identity) noexcept;

} // namespace torvane

#endif
