"""What gdb shows for the library's values: of a path its text, of an error its message, of an owner its handle.

gdb loads this by itself beside a library that is installed in /usr; elsewhere: source Debugger/printers.py
What holds no value, such as a variable ahead of its declaration, shows as "<no text: ...>" or the like.
"""

import struct

import gdb
import gdb.printing

NAMESPACE = "Brindle::Vok::"
UNITS_AT_MOST = 1 << 20  # whatever `print elements` says, for objects that hold no sensible length
INVALID_HANDLES = {
    NAMESPACE + "Detail::" + traits + "HandleTraits": value
    for traits, value in {
        "Invalid": -1, "Find": -1, "Null": 0, "Module": 0, "RegistryHkey": 0, "EnvironmentBlock": 0,
    }.items()
}


class NoValue(Exception):
    pass


def shown(show, what):
    """The text of show(), or why there is none: an exception here would end a whole `info locals`."""
    try:
        return show()
    except (NoValue, gdb.error, LookupError, ArithmeticError, ValueError, RuntimeError, TypeError) as error:
        return "<no {}: {}>".format(what, error)


def members_of(text):
    """Of a std::string or std::wstring: where its text is, its length and its capacity."""
    start = text["_M_dataplus"]["_M_p"]
    local = text["_M_local_buf"]
    if local.address is not None and int(start) == int(local.address):
        return int(start), int(text["_M_string_length"]), local.type.sizeof // start.dereference().type.sizeof - 1
    return int(start), int(text["_M_string_length"]), int(text["_M_allocated_capacity"])


def members_at(address, size):
    """The same by the string's place alone, for units of that size."""
    start, length, capacity = struct.unpack("<3Q", gdb.selected_inferior().read_memory(address, 24))
    return start, length, 16 // size - 1 if start == address + 16 else capacity


def bytes_of(members, size):
    """The stored units, and whether `print elements` cut them off."""
    start, length, capacity = members
    if length > capacity or start == 0:
        raise NoValue("uninitialised")
    count = min(length, gdb.parameter("print elements") or UNITS_AT_MOST, UNITS_AT_MOST)
    return bytes(gdb.selected_inferior().read_memory(start, count * size)) if count else b"", count < length


def quoted(characters, cut):
    """A backslash stays one; what can't be seen or written here shows as <U+....>."""
    try:
        charset = gdb.target_charset()
        "".encode(charset)
    except LookupError:
        charset = "ascii"

    def visible(character):
        if character.isprintable() and character.encode(charset, "ignore"):
            return character
        return "<U+{:04X}>".format(ord(character))

    return '"' + "".join(map(visible, characters)) + '"' + ("..." if cut else "")


class OfValue:
    def __init__(self, value):
        references = (gdb.TYPE_CODE_REF, gdb.TYPE_CODE_RVALUE_REF)
        self.value = value.referenced_value() if value.type.code in references else value


class PathPrinter(OfValue):
    def to_string(self):
        return shown(self.text, "text")

    def text(self):
        stored, cut = bytes_of(self.members(), 4)
        # Each wchar_t is a UTF-16 code unit; this way joins pairs and leaves lone surrogates.
        units = "".join(chr(unit) for (unit,) in struct.iter_unpack("<I", stored))
        return quoted(units.encode("utf-16-le", "surrogatepass").decode("utf-16-le", "surrogatepass"), cut)

    def members(self):
        try:
            text = self.value["text"]
        except gdb.error:
            # A compiler describes a class with virtual functions where its first one is defined: in the library, which
            # may have no debug information. The text stands behind the table's address.
            return members_at(int(self.value.address) + 8, 4)
        return members_of(text)


class ErrorPrinter(OfValue):
    def to_string(self):
        return shown(self.message, "message")

    def message(self):
        stored, cut = bytes_of(members_of(self.value["message"]), 1)
        return quoted(stored.decode("utf-8", "replace"), cut)


class HandleOwnerPrinter(OfValue):
    def to_string(self):
        return shown(self.handle, "handle")

    def handle(self):
        raw = self.value["raw"]
        if raw.type.strip_typedefs().code != gdb.TYPE_CODE_PTR:
            return "handle " + raw.format_string()
        number = int(raw)
        traits = self.value.type.strip_typedefs().template_argument(0)
        return "no handle" if number == self.invalid(traits, raw.type) else "handle {:#x}".format(number)

    @staticmethod
    def invalid(traits, raw_type):
        known = INVALID_HANDLES.get(traits.strip_typedefs().name)
        return None if known is None else known % (1 << 8 * raw_type.sizeof)


def printers():
    collection = gdb.printing.RegexpCollectionPrettyPrinter("Vok2")
    collection.add_printer("Path", "^Brindle::Vok::Path$", PathPrinter)
    collection.add_printer("Error", "^Brindle::Vok::(Windows|Com)?Error$", ErrorPrinter)
    collection.add_printer("HandleOwner", "^Brindle::Vok::HandleOwner<.*>$", HandleOwnerPrinter)
    return collection


gdb.printing.register_pretty_printer(gdb.current_objfile(), printers(), replace=True)
