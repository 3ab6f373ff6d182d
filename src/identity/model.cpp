#include "foundation/errors.h"
#include "foundation/sysfs.h"
#include "foundation/text.h"
#include "identity/ata.h"
#include "identity/results.h"
#include "torvane.h"

#include <cstring>
#include <scsi/scsi.h>
#include <scsi/scsi_ioctl.h>
#include <sys/ioctl.h>

using namespace torvane;

namespace {

constexpr const char *kGenericModel = "Generic SCSI device";

int fail_model(const char *words) noexcept {
    fail(kIdentity, "%s", words);
    return kNoModel;
}

// Standard INQUIRY data (SPC-4 clause 6.6.2) as SCSI_IOCTL_SEND_COMMAND returns it.
struct StandardInquiry {
    static constexpr unsigned kReplySize = 96;
    static constexpr size_t kVendor = 8;
    static constexpr size_t kVendorSize = 8;
    static constexpr size_t kProduct = 16;
    static constexpr size_t kProductSize = 16;

    // The ioctl's request: lengths, then the command, in whose place the reply comes back.
    struct {
        unsigned input_length;
        unsigned output_length;
        unsigned char data[kReplySize + 1];
    } request;

    const char *text_at(size_t offset) const noexcept { return reinterpret_cast<const char *>(request.data + offset); }
};

bool read_standard_inquiry(int fd, StandardInquiry &inquiry) noexcept {
    uint32_t idlun[2] = {0, 0};
    if (ioctl(fd, SCSI_IOCTL_GET_IDLUN, idlun) != 0) {
        fail(kIdentity, "failed to read idlun");
        idlun[1] = 0;
    }
    inquiry = StandardInquiry{};
    inquiry.request.output_length = StandardInquiry::kReplySize;
    const unsigned char command[] = {
        INQUIRY, static_cast<unsigned char>(idlun[1] << 5), 0, 0, StandardInquiry::kReplySize, 0};
    std::memcpy(inquiry.request.data, command, sizeof command);
    return ioctl(fd, SCSI_IOCTL_SEND_COMMAND, &inquiry.request) == 0;
}

// "vendor product", each cut to its field of the standard INQUIRY data.
void format_model(const char *vendor, const char *product, DeviceSpecification &specification) noexcept {
    char trimmed_vendor[kValueSize] = "";
    char trimmed_product[kValueSize] = "";
    trim(vendor, trimmed_vendor);
    trim(product, trimmed_product);
    std::snprintf(specification.model, sizeof specification.model, "%.10s %.16s", trimmed_vendor, trimmed_product);
}

// The same as a heap string, uncut: 0 or -1.
int format_model_alloc(const char *vendor, const char *product, char **model) noexcept {
    if (vendor == nullptr || product == nullptr) return fail(kIdentity, "unable to read vendor or product (NULL)");
    const CString trimmed_vendor(trim_new(vendor));
    const CString trimmed_product(trim_new(product));
    if (!trimmed_vendor || !trimmed_product) return fail(kIdentity, "failed to trim product and vendor");
    CString text = joined({trimmed_vendor.get(), " ", trimmed_product.get()});
    if (!text) return fail(kIdentity, "failed to allocate model");
    *model = text.release();
    return 0;
}

bool read_sysfs_model(DeviceSpecification &specification, int generic) noexcept {
    char model[kValueSize] = "";
    char vendor[kValueSize] = "";
    const char *name = specification.device_name;
    if (get_value_from_sys(name, "model", kBoundedLine, generic, 0, model) != 0) return false;
    if (get_value_from_sys(name, "vendor", kBoundedLine, generic, 0, vendor) != 0) return false;
    format_model(vendor, model, specification);
    return true;
}

int read_scsi_model(int fd, DeviceSpecification &specification) noexcept {
    if (read_sysfs_model(specification, 0)) return 0;
    StandardInquiry inquiry;
    if (!read_standard_inquiry(fd, inquiry)) return fail_model("scsi model command failed");
    char vendor[StandardInquiry::kVendorSize + 1] = "";
    char product[StandardInquiry::kProductSize + 1] = "";
    std::memcpy(vendor, inquiry.text_at(StandardInquiry::kVendor), StandardInquiry::kVendorSize);
    std::memcpy(product, inquiry.text_at(StandardInquiry::kProduct), StandardInquiry::kProductSize);
    format_model(vendor, product, specification);
    return 0;
}

int read_ide_model(int fd, DeviceSpecification &specification) noexcept {
    AtaIdentity identity;
    if (!read_ata_identity(fd, identity)) return fail_model("failed to read ide device identity");
    copy_text(specification.model, identity.model());
    return 0;
}

int read_generic_model(DeviceSpecification &specification) noexcept {
    if (!read_sysfs_model(specification, 1)) copy_text(specification.model, kGenericModel);
    return 0;
}

// 0 when both attributes were there and the model could be formed.
int allocate_sysfs_model(const char *path, char **model) noexcept {
    char *product = nullptr;
    if (_get_value_from_sys(path, "model", kWholeLine, 0, 0, &product) != 0) return -1;
    const CString owned_product(product);
    char *vendor = nullptr;
    if (_get_value_from_sys(path, "vendor", kWholeLine, 0, 0, &vendor) != 0) return -1;
    const CString owned_vendor(vendor);
    return format_model_alloc(vendor, product, model);
}

int allocate_ide_model(int fd, char **model) noexcept {
    const Block<AtaIdentity> identity(allocate<AtaIdentity>());
    if (!identity) return fail_model("failed to allocate hddrive_id");
    if (!read_ata_identity(fd, *identity)) return fail_model("failed to read ide device information");
    *model = duplicate_str(identity->model());
    return *model != nullptr ? 0 : fail_model("failed to allocate model");
}

int allocate_scsi_model(int fd, char **model) noexcept {
    StandardInquiry inquiry;
    if (!read_standard_inquiry(fd, inquiry)) return fail_model("failed to read model from scsi device");
    // Kept: the vendor text runs on to the reply's first NUL, and so the model holds product and revision twice,
    // other than the 8 and 16 characters of read_scsi_model().
    const CString vendor(duplicate_str(inquiry.text_at(StandardInquiry::kVendor)));
    const CString product(duplicate_str(inquiry.text_at(StandardInquiry::kProduct)));
    if (!vendor || !product) return fail_model("failed to allocate vendor and product");
    return format_model_alloc(vendor.get(), product.get(), model) == 0 ? 0 : kNoModel;
}

int allocate_generic_model(char **model) noexcept {
    *model = duplicate_str(kGenericModel);
    return *model != nullptr ? 0 : fail_model("failed to allocate model");
}

} // namespace

int get_device_model(int fd, DeviceSpecification *specification) noexcept {
    if (specification == nullptr) return kNoModel;
    if (specification->type < 1 && get_device_stat(fd, nullptr, specification) < 0) return kNoModel;
    if (specification->device_name[0] == '\0' &&
        get_name_from_fd(fd, specification->device_name, sizeof specification->device_name) < 1) {
        return fail_model("failed to read device name");
    }
    switch (specification->type) {
    case DEVICE_KIND_SCSI: return read_scsi_model(fd, *specification);
    case DEVICE_KIND_IDE: return read_ide_model(fd, *specification);
    case DEVICE_KIND_SCSI_GENERIC: return read_generic_model(*specification);
    default: return kNoModel;
    }
}

int get_drive_model(int fd, DeviceKind kind, const char *path, char **model) noexcept {
    if (model == nullptr) return kNoModel;
    *model = nullptr;
    if (path == nullptr) return kNoModel;
    if (allocate_sysfs_model(path, model) == 0) return 0;
    switch (kind) {
    case DEVICE_KIND_SCSI_GENERIC: return allocate_generic_model(model);
    case DEVICE_KIND_IDE: return allocate_ide_model(fd, model);
    case DEVICE_KIND_SCSI: return allocate_scsi_model(fd, model);
    default: return kNoModel;
    }
}
