"""The three ways in which NTFS stores bytes packed: LZNT1 units, and chunks of XPRESS and of LZX. Slow, plain, strict.

Each function gives the bytes or raises Bad. Nothing here is shared with the program under test.
"""

import struct


class Bad(Exception):
    """What is on the disk breaks a rule."""


def require(condition, words):
    if not condition:
        raise Bad(words)


# LZNT1

CHUNK = 4096


def lznt1_chunk(payload):
    out = bytearray()
    at = 0
    while at < len(payload):
        flags = payload[at]
        at += 1
        for bit in range(8):
            if at >= len(payload):
                break
            if not flags >> bit & 1:
                out.append(payload[at])
                at += 1
            else:
                require(at + 2 <= len(payload), "a token is cut")
                require(out, "a token without bytes ahead of it")
                token = payload[at] | payload[at + 1] << 8
                at += 2
                # The more bytes there are, the more bits say how far back.
                shift = 12 - ((len(out) - 1) >> 4).bit_length()
                distance, length = (token >> shift) + 1, (token & (1 << shift) - 1) + 3
                require(distance <= len(out), "a token leads ahead of its chunk")
                for _ in range(length):
                    out.append(out[-distance])
            require(len(out) <= CHUNK, "a chunk of more than 4096 bytes")
    return out


def lznt1_unit(stored, needed):
    """The first `needed` bytes of a unit, and whether a chunk ahead of them is shorter than 4096 bytes."""
    out, short, at = bytearray(), False, 0
    while len(out) < needed and at + 2 <= len(stored):
        header = stored[at] | stored[at + 1] << 8
        if header == 0:
            break
        at += 2
        require(header >> 12 & 7 == 3, "bits 12 to 14 of a chunk header")
        size = (header & 0xFFF) + 1
        require(at + size <= len(stored), "a chunk ends after the stored clusters")
        if header & 0x8000:
            chunk = lznt1_chunk(stored[at:at + size])
        else:
            require(size == CHUNK, "a stored chunk that is not of 4096 bytes")
            chunk = stored[at:at + size]
        at += size
        if len(chunk) < CHUNK and len(out) + len(chunk) < needed:
            short = True
        out += chunk + bytes(CHUNK - len(chunk))
    return bytes(out[:needed]) + bytes(max(0, needed - len(out))), short


# Bits, as both codecs of system compression take them: 16-bit words, the high bit first.

class Bits:
    def __init__(self, data, at=0):
        self.data = data
        self.at = at  # of the next word
        self.value = 0
        self.count = 0

    def fill(self, count):
        while self.count < count:
            word = self.data[self.at:self.at + 2]
            # Looking ahead reads zeros; taking what is not there does not.
            self.value = self.value << 16 | (struct.unpack("<H", word)[0] if len(word) == 2 else 0)
            self.at += 2
            self.count += 16

    def peek(self, count):
        self.fill(count)
        return self.value >> self.count - count & (1 << count) - 1

    def take(self, count):
        found = self.peek(count)
        self.count -= count
        require(8 * (self.at - len(self.data)) <= self.count, "bits after the end of the chunk")
        return found


class Code:
    """A canonical code of these lengths. One without a symbol is empty; else it must be complete."""

    def __init__(self, lengths, most):
        self.most = most
        self.symbols = {}
        used = sorted((length, symbol) for symbol, length in enumerate(lengths) if length)
        total = sum(1 << most - length for length, _ in used)
        require(not used or total == 1 << most, "a code is not complete")
        code, before = 0, 0
        for length, symbol in used:
            code <<= length - before
            self.symbols[length, code] = symbol
            code, before = code + 1, length

    def read(self, bits):
        for length in range(1, self.most + 1):
            symbol = self.symbols.get((length, bits.peek(length)))
            if symbol is not None:
                bits.take(length)
                return symbol
        raise Bad("a symbol of an empty code")


def xpress(stored, size):
    require(len(stored) >= 256, "a chunk without code lengths")
    code = Code([stored[i >> 1] >> 4 * (i & 1) & 15 for i in range(512)], 15)
    require(code.symbols, "an empty code")
    bits, out = Bits(stored, 256), bytearray()
    while len(out) < size:
        bits.fill(16)
        symbol = code.read(bits)
        if symbol < 256:
            out.append(symbol)
            continue
        length, extra = symbol & 15, symbol >> 4 & 15
        bits.fill(16)
        if length == 15:
            require(bits.at < len(stored), "a length after the end of the chunk")
            length = 15 + stored[bits.at]
            bits.at += 1
            if length == 15 + 255:
                require(bits.at + 2 <= len(stored), "a length after the end of the chunk")
                length = struct.unpack_from("<H", stored, bits.at)[0]
                bits.at += 2
        distance = (1 << extra) + bits.take(extra)
        length += 3
        require(distance <= len(out), "a match leads ahead of its chunk")
        require(len(out) + length <= size, "a match leads after its chunk")
        for _ in range(length):
            out.append(out[-distance])
    return bytes(out)


# LZX, as in WIM files

MAIN_SYMBOLS, LENGTH_SYMBOLS, CALLS_SIZE = 256 + 240, 249, 12000000


def lzx_lengths(bits, lengths):
    """Reads code lengths as differences from those of the block before."""
    pre = Code([bits.take(4) for _ in range(20)], 15)
    at = 0
    while at < len(lengths):
        symbol = pre.read(bits)
        if symbol <= 16:
            count, value = 1, (lengths[at] - symbol) % 17
        elif symbol == 17:
            count, value = 4 + bits.take(4), 0
        elif symbol == 18:
            count, value = 20 + bits.take(5), 0
        else:
            count = 4 + bits.take(1)
            symbol = pre.read(bits)
            require(symbol <= 16, "a difference of lengths above 16")
            value = (lengths[at] - symbol) % 17
        require(at + count <= len(lengths), "more code lengths than symbols")
        lengths[at:at + count] = [value] * count
        at += count
    return lengths


def lzx_undo_calls(out):
    at = 0
    while at < len(out) - 10:
        if out[at] != 0xE8:
            at += 1
            continue
        target = struct.unpack_from("<i", out, at + 1)[0]
        if 0 <= target < CALLS_SIZE:
            struct.pack_into("<i", out, at + 1, target - at)
        elif -at <= target < 0:
            struct.pack_into("<i", out, at + 1, target + CALLS_SIZE)
        at += 5


def lzx(stored, size):
    bits, out, recent = Bits(stored), bytearray(), [1, 1, 1]
    literals, matches, lengths = [0] * 256, [0] * 240, [0] * LENGTH_SYMBOLS
    while len(out) < size:
        kind = bits.take(3)
        end = len(out) + (32768 if bits.take(1) else bits.take(16))
        require(kind in (1, 2, 3), "the type of a block")
        require(len(out) < end <= size, "the size of a block")
        if kind == 3:
            lzx_stored_block(bits, out, end, recent)
            continue
        aligned = Code([bits.take(3) for _ in range(8)], 7) if kind == 2 else None
        literals, matches = lzx_lengths(bits, literals), lzx_lengths(bits, matches)
        main = Code(literals + matches, 16)
        lengths = lzx_lengths(bits, lengths)
        length_code = Code(lengths, 16)
        while len(out) < end:
            symbol = main.read(bits)
            if symbol < 256:
                out.append(symbol)
            else:
                lzx_match(bits, out, end, recent, symbol - 256, length_code, aligned)
    lzx_undo_calls(out)
    return bytes(out)


def lzx_stored_block(bits, out, end, recent):
    # The rest of the word is passed over; at its edge, a whole word.
    bits.take(bits.count % 16 or 16)
    at = bits.at - 2 * (bits.count // 16)
    require(at + 12 <= len(bits.data), "a stored block is cut")
    recent[:] = struct.unpack_from("<3I", bits.data, at)
    require(all(recent), "a distance of 0")
    at += 12
    size = end - len(out)
    require(at + size <= len(bits.data), "a stored block is cut")
    out += bits.data[at:at + size]
    bits.at, bits.value, bits.count = at + size + size % 2, 0, 0


def lzx_match(bits, out, end, recent, match, length_code, aligned):
    length, slot = (match & 7) + 2, match >> 3
    if match & 7 == 7:
        length += length_code.read(bits)
    if slot <= 2:
        recent[0], recent[slot] = recent[slot], recent[0]
    else:
        widths = [0] * 4 + [(s - 2) // 2 for s in range(4, slot + 1)]
        extra = widths[slot]
        distance = sum(1 << width for width in widths[:slot]) - 2
        if aligned and extra >= 3:
            distance += bits.take(extra - 3) << 3
            distance += aligned.read(bits)
        else:
            distance += bits.take(extra)
        recent[:] = [distance, recent[0], recent[1]]
    require(0 < recent[0] <= len(out), "a match leads ahead of its chunk")
    require(len(out) + length <= end, "a match leads after its block")
    for _ in range(length):
        out.append(out[-recent[0]])
