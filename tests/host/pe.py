"""Reads what the host tests need of a Windows binary: imports, exports, the version text."""
import struct


class Binary:
    def __init__(self, path):
        with open(path, "rb") as file:
            self.data = file.read()
        header = self._u32(0x3C)
        if self.data[header:header + 4] != b"PE\0\0" or self._u16(header + 24) != 0x20B:
            raise ValueError(f"{path}: no 64-bit Windows binary")
        sections = header + 24 + self._u16(header + 20)
        self.directories = header + 24 + 112
        self.sections = []
        for i in range(self._u16(header + 6)):
            size, address, raw_size, raw = struct.unpack_from("<IIII", self.data, sections + 40 * i + 8)
            self.sections.append((address, max(size, raw_size), raw))

    def _u16(self, at):
        return struct.unpack_from("<H", self.data, at)[0]

    def _u32(self, at):
        return struct.unpack_from("<I", self.data, at)[0]

    def _u64(self, at):
        return struct.unpack_from("<Q", self.data, at)[0]

    def _offset(self, address):
        for start, size, raw in self.sections:
            if start <= address < start + size:
                return address - start + raw
        raise ValueError(f"address {address:#x} is in no section")

    def _text(self, address):
        at = self._offset(address)
        return self.data[at:self.data.index(b"\0", at)].decode("ascii")

    def imports(self):
        """{dll in lower case: set of names (str) and ordinals (int)}"""
        found = {}
        address = self._u32(self.directories + 8)
        at = self._offset(address) if address else None
        while at is not None and self._u32(at + 12):
            entries = found.setdefault(self._text(self._u32(at + 12)).lower(), set())
            slot = self._offset(self._u32(at) or self._u32(at + 16))
            while thunk := self._u64(slot):
                entries.add(thunk & 0xFFFF if thunk >> 63 else self._text((thunk & 0x7FFFFFFF) + 2))
                slot += 8
            at += 20
        return found

    def exports(self):
        """(set of exported names, set of ordinals that have no name)"""
        address = self._u32(self.directories)
        if not address:
            return set(), set()
        at = self._offset(address)
        base, routines, names = struct.unpack_from("<III", self.data, at + 16)
        functions, name_table, ordinal_table = (self._offset(a) if a else 0
                                                for a in struct.unpack_from("<III", self.data, at + 28))
        named = {self._u16(ordinal_table + 2 * i): self._text(self._u32(name_table + 4 * i)) for i in range(names)}
        used = {i for i in range(routines) if self._u32(functions + 4 * i)}
        return set(named.values()), {base + i for i in used - named.keys()}

    def version_text(self, key="FileVersion"):
        """A text of the version resource, or None."""
        wide = (key + "\0").encode("utf-16-le")
        at = self.data.find(wide)
        if at < 0:
            return None
        at += len(wide)
        while self._u16(at) == 0:
            at += 2
        end = at
        while self._u16(end) != 0:
            end += 2
        return self.data[at:end].decode("utf-16-le")
