"""gdb pretty-printers for the string types and buffers of brimportable.

gdb loads this file by itself for an installed library. Otherwise: source brimportable.py

Texts are shown as literals, L"..." for wchar_t. Surrogate pairs are joined; what gdb's character set cannot show
is escaped; "print elements" limits the characters, as for gdb's own strings. Objects that cannot be right,
because they are uninitialised or overwritten, are shown as "<damaged: ...>".
"""

import gdb
import gdb.printing
import gdb.types

# A damaged length may be any number, so gdb is never asked for all of a text at once.
CHARACTERS_PER_READ = 4096

ESCAPES = {'\a': '\\a', '\b': '\\b', '\t': '\\t', '\n': '\\n', '\v': '\\v', '\f': '\\f', '\r': '\\r',
           '"': '\\"', '\\': '\\\\'}


class Damaged(Exception):
    """What is wrong with an object."""


def shown_by_gdb(character):
    """Whether gdb can print the character: it passes through both character sets."""
    try:
        for charset in (gdb.target_charset(), gdb.host_charset()):
            character.encode(charset)
    except (UnicodeError, LookupError):
        return False
    return character.isprintable()


def wide_character(code):
    if code == 0:
        return '\\000'
    if 0xD800 <= code <= 0xDFFF:
        return '\\u%04x' % code
    if code > 0x10FFFF:
        return '\\U%08x' % code
    character = chr(code)
    if character in ESCAPES:
        return ESCAPES[character]
    if shown_by_gdb(character):
        return character
    return '\\u%04x' % code if code <= 0xFFFF else '\\U%08x' % code


def wide_literal(units):
    """Units as numbers; each pair of surrogates is one character."""
    shown = []
    pending = None  # a first half
    for unit in units:
        if pending is not None and 0xDC00 <= unit <= 0xDFFF:
            shown.append(wide_character(0x10000 + ((pending - 0xD800) << 10) + (unit - 0xDC00)))
            pending = None
            continue
        if pending is not None:
            shown.append(wide_character(pending))
            pending = None
        if 0xD800 <= unit <= 0xDBFF:
            pending = unit
        else:
            shown.append(wide_character(unit))
    if pending is not None:
        shown.append(wide_character(pending))
    return 'L"%s"' % ''.join(shown)


def narrow_literal(data):
    """Bytes, taken for UTF-8 where they are."""
    shown = []
    for character in data.decode('utf-8', 'surrogateescape'):
        if character in ESCAPES:
            shown.append(ESCAPES[character])
        elif shown_by_gdb(character):
            shown.append(character)
        else:
            shown.extend('\\%03o' % byte for byte in character.encode('utf-8', 'surrogateescape'))
    return '"%s"' % ''.join(shown)


def read_units(address, count, width):
    """`count` bytes or wide characters; fewer where memory ends."""
    units = []
    inferior = gdb.selected_inferior()
    while len(units) < count:
        n = min(count - len(units), CHARACTERS_PER_READ)
        try:
            data = bytes(inferior.read_memory(address + len(units) * width, n * width))
        except (gdb.MemoryError, OverflowError):
            if n == 1:
                break
            count = len(units) + n // 2  # up to the last readable character
            continue
        units.extend(int.from_bytes(data[i:i + width], 'little') for i in range(0, len(data), width))
    return units


def literal(address, length, width, wide):
    """The text as gdb would print it, cut at "print elements"."""
    limit = gdb.parameter('print elements') or length  # 0 or None: no limit
    wanted = min(length, limit)
    units = read_units(address, wanted, width)
    if wide and wanted < length and units and 0xD800 <= units[-1] <= 0xDBFF:
        wanted -= 1  # the limit does not cut a pair in half
        units.pop()
    text = wide_literal(units) if wide else narrow_literal(bytes(units))
    if len(units) < wanted:
        raise Damaged('unreadable characters at 0x%x after %s' % (address + len(units) * width, text))
    return text + ('...' if wanted < length else '')


def length_between(first, last, width):
    if last < first or (last - first) % width != 0:
        raise Damaged('characters from 0x%x to 0x%x' % (first, last))
    return (last - first) // width


class Text:
    """Shows an object as its text. Subclasses tell where it lies."""

    def __init__(self, value):
        self.value = value
        # From the name, since template arguments are types and numbers: StringBufferTemplate<N, T>, String<T>.
        name = str(gdb.types.get_basic_type(value.type))
        self.width = gdb.lookup_type('wchar_t' if name.endswith('wchar_t>') else 'char').sizeof

    def to_string(self):
        try:
            place = self.place()
            if place is None:
                return 'L""' if self.width > 1 else '""'
            address, length, width = place
            return literal(address, length, width, self.width > 1)
        except Damaged as damage:
            return '<damaged: %s>' % damage
        except (gdb.error, OverflowError) as error:
            return '<damaged: %s>' % error

    def place(self):
        """Address, length and bytes per character; None for a text of nothing."""
        raise NotImplementedError


class StringPrinter(Text):
    """sup::String<T>"""

    def place(self):
        pointer = self.value['m_tState']['m_pData']
        if int(pointer) == 0:
            return None
        block = pointer.dereference()
        start = int(block['m_pStart'].address)
        length = length_between(start, int(block['m_pFinish']), self.width)
        if length > int(block['m_nCapacity']):
            raise Damaged('length %d, capacity %d' % (length, int(block['m_nCapacity'])))
        return start, length, self.width


class ByteStringPrinter(Text):
    """sup::ByteString<T>"""

    def place(self):
        pointer = self.value['m_rep']
        if int(pointer) == 0:
            return None
        block = pointer.dereference()
        length = int(block['m_nLength'])
        capacity = int(block['m_nCapacity'])
        width = int(block['m_nBytesPerChar'])
        if width not in (1, self.width) or length > capacity:
            raise Damaged('length %d, capacity %d, %d bytes a character' % (length, capacity, width))
        return int(block['m_pStart'].address), length, width


class StringBufferPrinter(Text):
    """sup::StringBufferBaseTemplate<T>, sup::StringBufferTemplate<N, T>"""

    def place(self):
        start = int(self.value['m_pBuffer'])
        length = length_between(start, int(self.value['m_pPos']), self.width)
        if length > int(self.value['m_nCapacity']):
            raise Damaged('length %d, capacity %d' % (length, int(self.value['m_nCapacity'])))
        return start, length, self.width


class RefStringPrinter(Text):
    """RefStringTemplate<T>"""

    def place(self):
        start = int(self.value['m_p'])
        length = length_between(start, int(self.value['m_pe']), self.width)
        return (start, length, self.width) if length != 0 else None


class AutoBufferPrinter:
    """AutoBufferBase<T>, AutoBuffer<T, N>, HeapedAutoBuffer<T>: all elements, since a buffer has no length."""

    def __init__(self, value):
        self.value = value

    def to_string(self):
        try:
            return 'capacity %d' % int(self.value['m_nCapacity'])
        except gdb.error as error:
            return '<damaged: %s>' % error

    def children(self):
        try:
            capacity = int(self.value['m_nCapacity'])
            elements = self.value['m_p']
            for i in range(capacity):
                element = (elements + i).dereference()
                element.fetch_lazy()
                yield '[%d]' % i, element
        except (gdb.error, OverflowError) as error:
            yield 'damaged', '<%s>' % error

    def display_hint(self):
        return 'array'


class HeapPrinter:
    """Heap<T>"""

    def __init__(self, value):
        self.value = value

    def to_string(self):
        return str(gdb.types.get_basic_type(self.value.type))

    def children(self):
        try:
            pointer = self.value['m_pObj']
            pointer.fetch_lazy()
            yield 'get()', pointer
        except gdb.error as error:
            yield 'damaged', '<%s>' % error


def build():
    printers = gdb.printing.RegexpCollectionPrettyPrinter('brimportable')
    printers.add_printer('String', r'^sup::String<(wchar_t|char)>$', StringPrinter)
    printers.add_printer('ByteString', r'^sup::ByteString<(wchar_t|char)>$', ByteStringPrinter)
    printers.add_printer('StringBuffer', r'^sup::StringBuffer(Base)?Template<(.*, ?)?(wchar_t|char)>$',
                         StringBufferPrinter)
    printers.add_printer('RefString', r'^RefStringTemplate<(wchar_t|char)>$', RefStringPrinter)
    printers.add_printer('AutoBuffer', r'^(Heaped)?AutoBuffer(Base)?<.*>$', AutoBufferPrinter)
    printers.add_printer('Heap', r'^Heap<.*>$', HeapPrinter)
    return printers


gdb.printing.register_pretty_printer(gdb.current_objfile(), build(), replace=True)
