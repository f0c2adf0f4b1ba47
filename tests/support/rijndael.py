"""Rijndael straight from its published description: field arithmetic instead of tables, any of its sizes.

Slow on purpose: the tests compare the library with it.
"""

import functools


@functools.lru_cache(maxsize=None)
def mul(a, b):
    """The product in GF(2^8) modulo x^8 + x^4 + x^3 + x + 1."""
    product = 0
    while b:
        if b & 1:
            product ^= a
        a = a << 1 ^ (0x11B if a & 0x80 else 0)
        b >>= 1
    return product


@functools.lru_cache(maxsize=None)
def sub(a):
    inverse = next((b for b in range(256) if mul(a, b) == 1), 0)
    bit = lambda i: inverse >> i % 8 & 1
    return sum((bit(i) ^ bit(i + 4) ^ bit(i + 5) ^ bit(i + 6) ^ bit(i + 7) ^ 0x63 >> i & 1) << i for i in range(8))


@functools.lru_cache(maxsize=None)
def unsub(a):
    return next(b for b in range(256) if sub(b) == a)


def xor(a, b):
    return bytes(x ^ y for x, y in zip(a, b))


def expand(key, block_bytes):
    """The round keys, each as long as a block."""
    nk = len(key) // 4
    rounds = max(nk, block_bytes // 4) + 6
    words = [key[i:i + 4] for i in range(0, len(key), 4)]
    constant = 1
    while len(words) < block_bytes // 4 * (rounds + 1):
        word, i = words[-1], len(words)
        if i % nk == 0:
            word = bytes(map(sub, word[1:] + word[:1]))
            word = xor(word, bytes([constant, 0, 0, 0]))
            constant = mul(constant, 2)
        elif nk > 6 and i % nk == 4:
            word = bytes(map(sub, word))
        words.append(xor(words[-nk], word))
    flat = b"".join(words)
    return [flat[i * block_bytes:(i + 1) * block_bytes] for i in range(rounds + 1)]


def shift(state, way):
    columns = len(state) // 4
    offsets = (0, 1, 3, 4) if columns == 8 else (0, 1, 2, 3)
    return bytes(state[(i // 4 + way * offsets[i % 4]) % columns * 4 + i % 4] for i in range(len(state)))


def mix(state, factors):
    return bytes(mul(state[i], factors[0]) ^ mul(state[i // 4 * 4 + (i + 1) % 4], factors[1]) ^
                 mul(state[i // 4 * 4 + (i + 2) % 4], factors[2]) ^ mul(state[i // 4 * 4 + (i + 3) % 4], factors[3])
                 for i in range(len(state)))


def encrypt_block(keys, block):
    state = xor(block, keys[0])
    for key in keys[1:-1]:
        state = xor(mix(shift(bytes(map(sub, state)), 1), (2, 3, 1, 1)), key)
    return xor(shift(bytes(map(sub, state)), 1), keys[-1])


def decrypt_block(keys, block):
    state = bytes(map(unsub, shift(xor(block, keys[-1]), -1)))
    for key in keys[-2:0:-1]:
        state = bytes(map(unsub, shift(mix(xor(state, key), (14, 11, 13, 9)), -1)))
    return xor(state, keys[0])


def encrypt(keys, chain, text, mode):
    """Mode 0 ECB, 1 CBC, 2 CFB over whole blocks."""
    out = b""
    for i in range(0, len(text), len(keys[0])):
        block = text[i:i + len(keys[0])]
        if mode == 0:
            out += encrypt_block(keys, block)
            continue
        chain = encrypt_block(keys, xor(chain, block)) if mode == 1 else xor(encrypt_block(keys, chain), block)
        out += chain
    return out


def decrypt(keys, chain, text, mode):
    out = b""
    for i in range(0, len(text), len(keys[0])):
        block = text[i:i + len(keys[0])]
        if mode == 0:
            out += decrypt_block(keys, block)
        else:
            out += xor(decrypt_block(keys, block), chain) if mode == 1 else xor(encrypt_block(keys, chain), block)
        chain = block
    return out


def pad(text):
    """PKCS#7 to blocks of 16 bytes."""
    count = 16 - len(text) % 16
    return text + bytes([count]) * count
