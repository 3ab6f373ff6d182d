"""What an emulated machine's own tools and files say there: the truth that the tests hold the answers against."""
import functools
import json
import pathlib
import subprocess
import time


def output_of(command):
    done = subprocess.run(command, shell=True, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, check=False)
    return done.stdout.decode(errors="surrogateescape").strip()


def content_of(path):
    """What a device that is just going cannot tell any more is empty."""
    try:
        return pathlib.Path(path).read_bytes().decode(errors="surrogateescape").strip()
    except OSError:
        return ""


def write_to(path, text):
    with open(path, "w", encoding="utf-8") as file:
        file.write(text)


def node_of(serial):
    """Of the disk with this serial number: "/dev/sdc", or "" without one."""
    return output_of(f"node_of {serial}")


def generic_of(node):
    """The SCSI generic node of a disk's node."""
    return {line.split()[-2]: line.split()[-1] for line in output_of("lsscsi --generic").splitlines()}.get(node)


def holds_soon(test, seconds=120):  # shared processors are slow
    end = time.monotonic() + seconds
    while not test():
        if time.monotonic() > end:
            return False
        time.sleep(0.02)
    return True


@functools.cache
def _port():
    port = open("/dev/virtio-ports/org.torvane.monitor", "r+b", buffering=0)
    _ask(port, {"execute": "qmp_capabilities"})  # refused when another program has done it
    return port


def _ask(port, question):
    port.write(json.dumps(question).encode() + b"\n")
    while not {"return", "error"} & (reply := json.loads(port.readline())).keys():
        pass  # an event
    return reply.get("return")


def monitor(line):
    """One line of the emulator's monitor; what it answers, which is "" when it has done so."""
    return _ask(_port(), {"execute": "human-monitor-command", "arguments": {"command-line": line}})
