"""How the declarations reach libtorvane.so.2: what C's texts, arrays and addresses become in Python."""
import ctypes

library = ctypes.CDLL("libtorvane.so.2", use_errno=True)
_free = ctypes.CDLL(None).free
_free.argtypes = [ctypes.c_void_p]
_free.restype = None


def text(value):
    """A text of C as str. Devices may answer with any bytes: those that are no UTF-8 survive as surrogates."""
    return None if value is None else value.decode("utf-8", "surrogateescape")


def encoded(value):
    """A str as a text of C, the way back from text()."""
    return value.encode("utf-8", "surrogateescape") if isinstance(value, str) else value


def _copied_and_freed(pointer, _function, _arguments):
    if not pointer:
        return None
    try:
        return text(ctypes.string_at(pointer))
    finally:
        _free(pointer)


class Text(ctypes.c_char_p):
    """An argument that is text: str, bytes or a buffer, None for a null pointer."""

    @classmethod
    def from_param(cls, value):
        return ctypes.c_char_p.from_param(encoded(value))


class String(ctypes.c_char_p):
    """A place for a heap string that a function hands out, freed at the end of the `with`:

    with torvane.String() as generic:
        if torvane.get_sg_name("/dev/sda", generic) == 0:
            print(generic)
    """

    def __enter__(self):
        return self

    def __exit__(self, *_exception):
        _free(self)
        self.value = None

    def __str__(self):
        return text(self.value) or ""


class Record(ctypes.Structure):
    """A record of the library. Texts read as str or None, counted arrays as lists; raw_NAME is the field that C has.

    What a record leads to belongs to the library's owner of it, and is gone when that is released.
    """

    _arrays_ = {}

    @classmethod
    def declare(cls, fields):
        cls._fields_ = fields
        for name, kind in fields:
            if kind is ctypes.c_char_p or getattr(kind, "_type_", None) is ctypes.c_char:
                cls._show(name, lambda record, raw: text(raw))
            elif name in cls._arrays_:
                cls._show(name, cls._array(cls._arrays_[name]))

    @classmethod
    def _show(cls, name, convert):
        raw = getattr(cls, name)
        setattr(cls, f"raw_{name}", raw)
        setattr(cls, name, property(lambda record: convert(record, raw.__get__(record, cls))))

    @staticmethod
    def _array(count):
        def read(record, pointer):
            found = [pointer[i] for i in range(getattr(record, count))] if pointer else []
            if found and isinstance(found[0], ctypes._Pointer):
                return [item.contents for item in found if item]
            return [text(item) if isinstance(item, bytes) else item for item in found]

        return read

    def __repr__(self):
        fields = ", ".join(f"{name}={getattr(self, name)!r}" for name, _ in self._fields_)
        return f"{type(self).__name__}({fields})"


def function(name, summary, result, *arguments):
    found = getattr(library, name)
    found.restype, found.argtypes, found.__doc__ = result, arguments, summary
    if result is ctypes.c_char_p:
        found.errcheck = lambda value, _function, _arguments: text(value)
    elif result is ctypes.POINTER(ctypes.c_char):
        found.errcheck = _copied_and_freed
    return found


def constant(name, kind):
    return kind.in_dll(library, name)
