"""The storage devices of a Linux machine, and what they are.

    import torvane

    with torvane.drives() as drives:
        for drive in drives:
            print(drive.name, drive.model, drive.serial)

Every function, record and constant of torvane.h is here under its own name. The functions below it own what they hand
out: a `with` releases it, and failures are raised as torvane.Error.
"""
import ctypes
from contextlib import contextmanager

from . import _interface
from ._interface import *  # noqa: F401,F403 pylint: disable=wildcard-import,unused-wildcard-import
from ._library import String, encoded, library, text  # noqa: F401

__version__ = _interface.VERSION

EVERYDAY = DriveOptions.SYSTEM | DriveOptions.IDENTITY | DriveOptions.GEOMETRY
CATEGORIES = {value: name.removeprefix("TORVANE_ERROR_").lower().replace("_", " ")
              for name, value in vars(_interface).items() if name.startswith("TORVANE_ERROR_")}


class Error(OSError):
    """A failed call: `result`, and the `category` and `text` that the library gives for it."""

    def __init__(self, category, result=-1):
        self.category, self.result, self.text = category, result, get_error_str(category)
        super().__init__(f"{CATEGORIES[category]}: {self.text}")


def _names(names):
    return (ctypes.c_char_p * len(names))(*map(encoded, names)), len(names)


def _checked(result, category):
    if result != 0:
        raise Error(category, result)


@contextmanager
def _drives(fill):
    """A DriveList that `fill` fills, as a list of its records; it is released whatever comes."""
    found = DriveList()
    try:
        _checked(fill(found), TORVANE_ERROR_DRIVE_LIST)
        yield found.drives
    finally:
        release_drives(found)
        found.raw_drives, found.count = None, 0


def drives(options=EVERYDAY, names=()):
    """The machine's drives, and those with these device paths."""
    array, count = _names(names)
    return _drives(lambda found: get_drives(found, options, array if count else None, count))


def drives_by_serial(serial, options=EVERYDAY | DriveOptions.IDENTITY):
    """The drives whose serial number begins with this text."""
    return _drives(lambda found: get_drive_by_serial(found, options, serial))


@contextmanager
def raids():
    """The RAID controllers with their logical and physical drives, a list of RaidController."""
    array, count = ctypes.POINTER(RaidController)(), ctypes.c_uint()
    try:
        _checked(get_raids(array, count), TORVANE_ERROR_RAID)
        yield [array[i] for i in range(count.value)]
    finally:
        destroy_raids(array, count.value)


@contextmanager
def usb_storage():
    """The USB mass-storage interfaces with the devices behind them, a list of MediaRecord."""
    found = MediaList()
    try:
        _checked(get_usb_mass_storage_devices(found), TORVANE_ERROR_DEVICE)
        yield found.media
    finally:
        release_media_list(found)
