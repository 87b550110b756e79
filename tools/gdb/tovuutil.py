"""Shows values of libtovuutil in gdb as the library itself would write them: Exception as its report, Socket::Address and
GUID as text. gdb reads this file by itself, as libtovuutil.so.VERSION-gdb.py, wherever it trusts the file's folder; in
any other case: source FILE.

Only memory and debug information are looked at, and no function of the program is called, so that core files and programs
that hang are shown as well. A value that is garbage is shown as far as it goes, never by an error: what is read is
bounded.

Members are taken by their place, on which programs rely, so that it never changes: where the library's debug information is
missing, gdb may have no more of a class than its name. It comes here all the same for what is a reference or behind a
pointer. Only what is nowhere in memory, as gdb's own variables are, needs the members' names.
"""

import functools
import operator

import gdb
import gdb.printing

LONGEST_TEXT = 65536  # of a message, where "set print elements" has no limit
LONGEST_FILE_NAME = 4096
MOST_LOCATIONS = 20
PIECE = 256  # how much is read at once of what has no known end: never across a page

AF_UNSPEC, AF_LOCAL, AF_INET = 0, 1, 2  # of Linux, whatever machine gdb runs on
INET_ADDRESS_LENGTH = 16
FAMILY_LENGTH = 2


def readable(data):
    """Bytes as text: UTF-8 and line feeds as they are, anything else that is not printable as an escape sequence."""
    text = bytes(data).decode("utf-8", "backslashreplace")
    return "".join(c if c.isprintable() or c == "\n" else c.encode("unicode_escape").decode() for c in text)


def read_memory(address, length):
    return bytes(gdb.selected_inferior().read_memory(address, length))


def read_terminated(address):
    """The bytes in front of a zero byte, or the first ones where there is none."""
    data = b""
    while len(data) < LONGEST_FILE_NAME:
        data += read_memory(address + len(data), PIECE - (address + len(data)) % PIECE)
        if 0 in data:
            return data[: data.index(0)]
    return data[:LONGEST_FILE_NAME]


def numbers_at(address, kind):
    """Memory as an array of numbers."""
    return gdb.Value(int(address)).cast(gdb.lookup_type(kind).pointer())


def words_at(address):
    """Memory as an array of numbers of a pointer's size."""
    return numbers_at(address, "unsigned long")


def array_bytes(array, count):
    """The bytes of an array that is nowhere in memory."""
    return bytes(int(array[i]) & 0xFF for i in range(count))


def tolerant(show):
    """What cannot be read is no reason to leave out the rest of a frame's values."""

    def show_or_say_why(subject):
        try:
            return show(subject)
        except (gdb.error, OverflowError, ValueError) as error:
            return "<cannot be read: %s>" % error

    return show_or_say_why


class ExceptionPrinter:
    """As Exception::Report has it: the message, and where it was thrown from and seen at."""

    # The place in words, where the virtual table's is 0, and the name.
    TRAIL = 1, "locations._M_impl._M_start"
    TRAIL_END = 2, "locations._M_impl._M_finish"
    MESSAGE = 4, "message_._M_dataplus._M_p"
    MESSAGE_LENGTH = 5, "message_._M_string_length"

    def __init__(self, value):
        self._value = value

    def to_string(self):
        return self._message() + "\nTraceback:\n" + self._traceback()

    def _member(self, member):
        place, names = member
        if self._value.address is not None:
            return int(words_at(self._value.address)[place])
        return int(functools.reduce(operator.getitem, names.split("."), self._value))

    @tolerant
    def _message(self):
        length = self._member(self.MESSAGE_LENGTH)
        limit = gdb.parameter("print elements") or LONGEST_TEXT
        text = readable(read_memory(self._member(self.MESSAGE), min(length, limit)))
        return text + "..." if length > limit else text

    @tolerant
    def _traceback(self):
        locations = words_at(self._member(self.TRAIL))  # two words each, the file's name and the line
        size = self._member(self.TRAIL_END) - int(locations)
        if size < 0:
            raise ValueError("it ends in front of its beginning")
        count = size // (2 * locations.dereference().type.sizeof)
        text = ""
        for index in range(min(count, MOST_LOCATIONS)):
            text += "\n  seen at " if index else "thrown from "
            file = int(locations[2 * index])
            if file == 0:  # the report ends there
                return text
            text += "%s, line %d" % (self._file_name(file), int(locations[2 * index + 1]) & 0xFFFFFFFF)
        return text + "\n  and %d more" % (count - MOST_LOCATIONS) if count > MOST_LOCATIONS else text

    @staticmethod
    @tolerant
    def _file_name(address):
        return readable(read_terminated(address))


class AddressPrinter:
    """IPv4 as "127.0.0.1:4711", local as its path, or "@" and its name for an abstract one."""

    LENGTH_OFFSET = 112
    PATH_SIZE = 108

    def __init__(self, value):
        self._value = value

    @tolerant
    def to_string(self):
        family, length, data = self._members()
        if family == AF_INET and length == INET_ADDRESS_LENGTH:
            return "%d.%d.%d.%d:%d" % (*data[2:6], int.from_bytes(data[:2], "big"))
        if family == AF_LOCAL and length >= FAMILY_LENGTH:
            return self._local(data[: length - FAMILY_LENGTH])
        if family == AF_UNSPEC and length == 0:
            return "<empty>"
        return "<family %d, length %d>" % (family, length)

    def _members(self):
        """The family, the length, and the bytes behind the family."""
        address = self._value.address
        if address is None:
            storage = self._value["address"]
            family, length = storage["generic"]["sa_family"], self._value["length"]
            return int(family), int(length), array_bytes(storage["local"]["sun_path"], self.PATH_SIZE)
        family = numbers_at(address, "unsigned short")[0]
        length = numbers_at(int(address) + self.LENGTH_OFFSET, "unsigned int")[0]
        return int(family), int(length), read_memory(int(address) + FAMILY_LENGTH, self.PATH_SIZE)

    @staticmethod
    def _local(path):
        if not path:
            return "<unnamed>"
        if path[0] == 0:
            return "@" + readable(path[1:])
        return readable(path.split(b"\0")[0])


class GUIDPrinter:
    """As GUID::ToString has it."""

    SIZE = 16

    def __init__(self, value):
        self._value = value

    @tolerant
    def to_string(self):
        address = self._value.address
        data = array_bytes(self._value["bytes_"], self.SIZE) if address is None else read_memory(int(address), self.SIZE)
        return data.hex()


def printers():
    collection = gdb.printing.RegexpCollectionPrettyPrinter("tovuutil")
    collection.add_printer("Exception", "^tovu::util::Exception$", ExceptionPrinter)
    collection.add_printer("Socket::Address", "^tovu::util::Socket::Address$", AddressPrinter)
    collection.add_printer("GUID", "^tovu::util::GUID$", GUIDPrinter)
    return collection


gdb.printing.register_pretty_printer(gdb.current_objfile(), printers(), replace=True)
