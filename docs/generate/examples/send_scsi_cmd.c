#include <fcntl.h>
#include <scsi/sg.h>
#include <stdio.h>
#include <torvane.h>
#include <unistd.h>

/* INQUIRY (SPC-4 clause 6.6), standard data: the vendor's name stands at
   byte 8. */
int main(void) {
    unsigned char data[96] = {0};
    ScsiCommand command;
    setup_scsi_cmd(&command, 0x12, 0, 0, 0, sizeof data, 0, 6,
                   SG_DXFER_FROM_DEV, sizeof data, data);
    const int fd = open("/dev/sg0", O_RDONLY | O_NONBLOCK);
    const int result = fd >= 0 ? send_scsi_cmd(fd, &command) : 1;
    if (result == 0) printf("%.8s\n", (const char *)data + 8);
    SenseSummary sense;
    if (result != 0 &&
        decode_sense(command.sense, sizeof command.sense, &sense) == 1)
        printf("sense key %d\n", sense.sense_key);
    if (fd >= 0) close(fd);
    return result == 0 ? 0 : 1;
}
