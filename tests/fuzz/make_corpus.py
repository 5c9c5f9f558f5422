#!/usr/bin/env python3
"""Writes the committed seed corpus of the fuzz targets to tests/fuzz/corpus/.

Each file name starts with the outcome the replay test (tests/fuzzcorpus)
expects, up to the first '-': for processRequest the outcome of each frame
joined by '+' (answered, refused, dropped), for the seed loader accepted or
refused, for the deserializer parsed or rejected. Run it again after
changing the inputs below; it replaces the three folders.
"""
import json
import pathlib
import shutil
import struct

CORPUS = pathlib.Path(__file__).resolve().parent / "corpus"

# processRequest: byte 0 holds the flags, the rest is the stream.
SKIP_READ_CHECKS, READ_ONLY, ADDRESS_SHIFT, RTU, RAW_RTU = 1, 2, 4, 8, 16


def pdu(function, *words, data=b""):
    return bytes([function]) + b"".join(struct.pack(">H", w) for w in words) + data


def tcp(p, unit=17, tid=1):
    return struct.pack(">HHHB", tid, 0, len(p) + 1, unit) + p


def crc(frame):
    value = 0xFFFF
    for byte in frame:
        value ^= byte
        for _ in range(8):
            value = (value >> 1) ^ 0xA001 if value & 1 else value >> 1
    return struct.pack("<H", value)


def registers(*values):
    return bytes([2 * len(values)]) + b"".join(struct.pack(">H", v) for v in values)


READ_COILS, READ_DISCRETES, READ_HOLDING, READ_INPUT = 1, 2, 3, 4
WRITE_COIL, WRITE_REGISTER, WRITE_COILS, WRITE_REGISTERS = 5, 6, 15, 16

PROCESS_REQUEST = {
    "answered-tcp-fc3-holding": tcp(pdu(READ_HOLDING, 10, 2)),
    "answered-tcp-fc3-part-of-entry": tcp(pdu(READ_HOLDING, 11, 1)),
    "refused-tcp-fc3-125-registers-from-gap": tcp(pdu(READ_HOLDING, 0, 125)),
    "refused-tcp-fc3-gap": tcp(pdu(READ_HOLDING, 14, 1)),
    "refused-tcp-fc3-huge-count": tcp(pdu(READ_HOLDING, 10, 0xFFFF)),
    "answered-tcp-fc3-zero-count": tcp(pdu(READ_HOLDING, 10, 0)),
    "answered-tcp-fc3-legacy": tcp(pdu(READ_HOLDING, 40, 2)),
    "refused-tcp-fc3-unavailable-legacy": tcp(pdu(READ_HOLDING, 44, 1)),
    "answered-tcp-fc4-input-and-probe": tcp(pdu(READ_INPUT, 30, 3)),
    "answered-tcp-fc4-legacy": tcp(pdu(READ_INPUT, 46, 3)),
    "refused-tcp-fc4-unavailable": tcp(pdu(READ_INPUT, 33, 1)),
    "refused-tcp-fc4-holding-only": tcp(pdu(READ_INPUT, 10, 1)),
    "answered-tcp-fc1-coils": tcp(pdu(READ_COILS, 0, 2)),
    "answered-tcp-fc2-discrete-input": tcp(pdu(READ_DISCRETES, 5, 1)),
    "refused-tcp-fc2-across-gap": tcp(pdu(READ_DISCRETES, 0, 7)),
    "answered-tcp-fc5-coil-on": tcp(pdu(WRITE_COIL, 0, 0xFF00)),
    "answered-tcp-fc5-bad-coil-value": tcp(pdu(WRITE_COIL, 1, 0x1234)),
    "refused-tcp-fc5-read-only-coil": tcp(pdu(WRITE_COIL, 5, 0x0000)),
    "refused-tcp-fc5-unavailable-coil": tcp(pdu(WRITE_COIL, 6, 0xFF00)),
    "answered-tcp-fc6-register": tcp(pdu(WRITE_REGISTER, 13, 0x1234)),
    "answered-tcp-fc6-second-word-of-entry": tcp(pdu(WRITE_REGISTER, 11, 0xBEEF)),
    "refused-tcp-fc6-input-register": tcp(pdu(WRITE_REGISTER, 30, 1)),
    "refused-tcp-fc6-read-only": tcp(pdu(WRITE_REGISTER, 12, 1)),
    "refused-tcp-fc6-unavailable": tcp(pdu(WRITE_REGISTER, 15, 1)),
    "answered-tcp-fc15-coils": tcp(pdu(WRITE_COILS, 0, 2, data=bytes([1, 0b01]))),
    "refused-tcp-fc15-across-gap": tcp(pdu(WRITE_COILS, 0, 6, data=bytes([1, 0x3F]))),
    "answered-tcp-fc15-zero-count": tcp(pdu(WRITE_COILS, 0, 0, data=bytes([0]))),
    "answered-tcp-fc16-registers": tcp(pdu(WRITE_REGISTERS, 20, 4, data=registers(1, 2, 3, 4))),
    "answered-tcp-fc16-legacy": tcp(pdu(WRITE_REGISTERS, 46, 3, data=registers(7, 8, 9))),
    "answered-tcp-fc16-byte-count-mismatch": tcp(pdu(WRITE_REGISTERS, 20, 2, data=bytes([3, 1, 2, 3]))),
    "refused-tcp-fc16-with-read-only-entry": tcp(pdu(WRITE_REGISTERS, 10, 3, data=registers(1, 2, 3))),
    "refused-tcp-fc16-huge-count": tcp(pdu(WRITE_REGISTERS, 20, 0xFFFF, data=bytes([2, 0, 1]))),
    "refused-tcp-fc23-read-write": tcp(pdu(23, 10, 1, 13, 1, data=registers(5))),
    "refused-tcp-fc0": tcp(pdu(0, 0, 0)),
    "refused-tcp-fc7-exception-status": tcp(pdu(7)),
    "refused-tcp-fc17-report-slave-id": tcp(pdu(17)),
    "refused-tcp-fc255": tcp(pdu(255)),
    "answered-tcp-unit-255": tcp(pdu(READ_HOLDING, 10, 1), unit=255),
    "answered-tcp-unit-0": tcp(pdu(READ_HOLDING, 10, 1), unit=0),
    "dropped-tcp-short-header": tcp(pdu(READ_HOLDING, 10, 1))[:5],
    "dropped-tcp-short-pdu": tcp(pdu(READ_HOLDING, 10, 1))[:10],
    "dropped-tcp-fc16-missing-data": tcp(pdu(WRITE_REGISTERS, 20, 2, data=bytes([4, 1]))),
    "answered+answered-tcp-write-then-read": tcp(pdu(WRITE_REGISTERS, 40, 2, data=registers(0x4142, 0x4344)))
    + tcp(pdu(READ_INPUT, 40, 2), tid=2),
    "answered+refused+dropped-tcp-then-garbage": tcp(pdu(READ_HOLDING, 10, 2))
    + tcp(pdu(WRITE_REGISTER, 12, 5), tid=2)
    + b"\x00\x03\x00",
}
PROCESS_REQUEST_FLAGGED = {
    "refused-tcp-read-only-flag": (READ_ONLY, tcp(pdu(WRITE_REGISTER, 13, 1))),
    "answered-tcp-read-only-flag-read": (READ_ONLY, tcp(pdu(READ_HOLDING, 13, 1))),
    "answered-tcp-address-shift-read": (ADDRESS_SHIFT, tcp(pdu(READ_HOLDING, 11, 2))),
    "refused-tcp-address-shift-write-zero": (ADDRESS_SHIFT, tcp(pdu(WRITE_REGISTER, 0, 1))),
    "answered-tcp-address-shift-coil": (ADDRESS_SHIFT, tcp(pdu(WRITE_COIL, 1, 0xFF00))),
    "answered-tcp-skip-checks-whole-table": (SKIP_READ_CHECKS, tcp(pdu(READ_HOLDING, 0, 51))),
    "answered-tcp-skip-checks-beyond-table": (SKIP_READ_CHECKS, tcp(pdu(READ_INPUT, 100, 1))),
    "answered-tcp-skip-checks-coils-gap": (SKIP_READ_CHECKS, tcp(pdu(READ_COILS, 0, 7))),
    "refused-tcp-skip-checks-write-gap": (SKIP_READ_CHECKS, tcp(pdu(WRITE_REGISTER, 14, 1))),
    "answered-rtu-fc3": (RTU, bytes([1]) + pdu(READ_HOLDING, 10, 2)),
    "answered-rtu-fc16": (RTU, bytes([1]) + pdu(WRITE_REGISTERS, 20, 2, data=registers(9, 10))),
    "answered-rtu-fc5": (RTU, bytes([7]) + pdu(WRITE_COIL, 0, 0xFF00)),
    "refused-rtu-fc6-read-only": (RTU, bytes([1]) + pdu(WRITE_REGISTER, 12, 1)),
    "refused-rtu-fc8-diagnostics": (RTU, bytes([1, 8])),
    "answered-rtu-broadcast-write": (RTU, bytes([0]) + pdu(WRITE_REGISTER, 13, 0x5555)),
    "dropped-rtu-unit-250": (RTU, bytes([250]) + pdu(READ_HOLDING, 10, 1)),
    "dropped-rtu-unit-only": (RTU, bytes([1])),
    "dropped-rtu-bad-crc": (RTU | RAW_RTU, bytes([1]) + pdu(READ_HOLDING, 10, 1) + b"\x00\x00"),
    "answered-rtu-raw-good-crc": (RTU | RAW_RTU, bytes([1]) + pdu(READ_HOLDING, 10, 1) + crc(bytes([1]) + pdu(READ_HOLDING, 10, 1))),
    "dropped-rtu-fc16-byte-count-beyond-frame": (RTU, bytes([1]) + pdu(WRITE_REGISTERS, 20, 1, data=bytes([200, 1, 2]))),
}

# Seeds, loaded on top of a store that holds devices 10 (channel 11) and
# three more without given ids.
SEEDS = {
    "accepted-no-devices": {"devices": []},
    "accepted-one-device": {"devices": [{"name": "a"}]},
    "accepted-full-tree": {"devices": [{
        "id": 100, "name": "ups", "attributes": {"Model": "X", "42": "text"},
        "channels": [{"id": 101, "name": "Voltage", "kind": "float", "value": 230.5,
                      "alarm": {"enabled": True, "thresholds": [1, 2, 3, 4], "thresholdEnabled": False,
                                "hysteresis": 0.5, "level": 2,
                                "active": [{"code": 7, "flag": 1, "threshold": 3}]}},
                     {"name": "Count", "kind": "uint32", "value": 4294967295},
                     {"name": "Offset", "kind": "int32", "value": -2147483648},
                     {"name": "Label", "kind": "string", "value": "Z\u00e4hler \u2713"},
                     {"name": "Relay", "kind": "bool"}],
        "devices": [{"name": "battery", "devices": [{"name": "cell"}]}]}]},
    "accepted-deep-nesting": {"devices": [{"name": "d0", "devices": [{"name": "d1", "devices": [
        {"name": "d2", "devices": [{"name": "d3", "devices": [{"name": "d4", "devices": [
            {"name": "d5", "channels": [{"name": "c", "kind": "float", "value": -0.0}]}]}]}]}]}]}]},
    "accepted-same-names-in-two-devices": {"devices": [{"name": "x", "channels": [{"name": "c", "kind": "bool"}]},
                                                       {"name": "x", "channels": [{"name": "c", "kind": "bool"}]}]},
    "refused-not-an-object": [],
    "refused-missing-name": {"devices": [{"id": 50}]},
    "refused-empty-name": {"devices": [{"name": ""}]},
    "refused-id-in-use": {"devices": [{"id": 10, "name": "again"}]},
    "refused-id-of-existing-channel": {"devices": [{"id": 11, "name": "again"}]},
    "refused-id-zero": {"devices": [{"id": 0, "name": "zero"}]},
    "refused-id-all-ones": {"devices": [{"id": 18446744073709551615, "name": "ones"}]},
    "refused-id-negative": {"devices": [{"id": -1, "name": "negative"}]},
    "refused-id-text": {"devices": [{"id": "12", "name": "text"}]},
    "refused-id-twice-in-seed": {"devices": [{"id": 60, "name": "a"}, {"id": 60, "name": "b"}]},
    "refused-channel-id-clash-deep": {"devices": [{"id": 70, "name": "a", "devices": [
        {"name": "b", "channels": [{"id": 11, "name": "c", "kind": "bool"}]}]}]},
    "refused-same-channel-name-twice": {"devices": [{"name": "a", "channels": [
        {"name": "c", "kind": "bool"}, {"name": "c", "kind": "int32"}]}]},
    "refused-unknown-member": {"devices": [{"name": "a", "colour": "red"}]},
    "refused-unknown-root-member": {"devices": [], "extra": 1},
    "refused-unknown-kind": {"devices": [{"name": "a", "channels": [{"name": "c", "kind": "double"}]}]},
    "refused-value-of-other-kind": {"devices": [{"name": "a", "channels": [{"name": "c", "kind": "int32", "value": "x"}]}]},
    "refused-int32-too-large": {"devices": [{"name": "a", "channels": [{"name": "c", "kind": "int32", "value": 2147483648}]}]},
    "refused-uint32-negative": {"devices": [{"name": "a", "channels": [{"name": "c", "kind": "uint32", "value": -1}]}]},
    "refused-three-thresholds": {"devices": [{"name": "a", "channels": [{"name": "c", "kind": "float",
                                                                        "alarm": {"thresholds": [1, 2, 3]}}]}]},
    "refused-attribute-not-text": {"devices": [{"name": "a", "attributes": {"Model": 5}}]},
    "refused-attribute-unknown-name": {"devices": [{"name": "a", "attributes": {"Colour": "red"}}]},
    "refused-second-device-bad": {"devices": [{"name": "good", "channels": [{"name": "c", "kind": "bool"}]},
                                              {"name": "bad", "channels": [{"name": "c", "kind": "nothing"}]}]},
    "refused-devices-not-array": {"devices": {"name": "a"}},
    "refused-channel-without-kind": {"devices": [{"name": "a", "channels": [{"name": "c"}]}]},
}
SEED_TEXTS = {
    "refused-empty-text": b"",
    "refused-truncated": b'{"devices": [{"name": "a"',
    "refused-trailing-garbage": b'{"devices": []} x',
    "refused-invalid-utf8-name": b'{"devices": [{"name": "\xff\xfe"}]}',
    "refused-number-overflow": b'{"devices": [{"name": "a", "channels": [{"name": "c", "kind": 1e340}], "value": 1e300}]}',
    "refused-float-beyond-single": b'{"devices": [{"name": "a", "channels": [{"name": "c", "kind": "float", "value": 1e300}]}]}',
}

# Deserializer: byte 0 bit 0 allows comments.
DESERIALIZER = {
    "parsed-object": (0, b'{"name": "ups", "port": 502, "enabled": true, "ratio": 0.5, "none": null}'),
    "parsed-nested-arrays": (0, b'{"a": [[1, 2], [], [{"b": [true, "x"]}]]}'),
    "parsed-numbers": (0, b'[0, -0, 1.5, 12.0, 1e3, 1e99, 2147483648, -2147483649, 4294967296, '
                          b'-9223372036854775808, 18446744073709551615, 123456789012345678901234567890]'),
    "parsed-numeric-strings": (0, b'["12", "-7", "1.5", "0x1F", "", " 1", "+1", "2.5e3", "true", "false", "1e400"]'),
    "parsed-escapes": (0, b'{"s": "\\u0000\\n\\"\\\\\\ud83d\\ude00", "\\u00e9": 1}'),
    "parsed-scalar-root": (0, b"42"),
    "parsed-string-root": (0, b'"text"'),
    "parsed-null-root": (0, b"null"),
    "parsed-empty-object": (0, b"{}"),
    "parsed-duplicate-keys": (0, b'{"k": 1, "k": "two"}'),
    "parsed-key-like-an-index": (0, b'{"a[0]": {"": [null]}}'),
    "parsed-comments-allowed": (1, b'// defaults\n{"port": /* tcp */ 502}'),
    "parsed-deep-nesting": (0, b"[" * 200 + b"]" * 200),
    "parsed-whitespace": (0, b" \t\r\n{ } \n"),
    "rejected-comments-not-allowed": (0, b'// defaults\n{"port": 502}'),
    "rejected-number-overflow": (0, b'{"x": 1e400}'),
    "rejected-truncated": (0, b'{"a": [1, 2'),
    "rejected-empty": (0, b""),
    "rejected-trailing-comma": (0, b"[1, 2,]"),
    "rejected-single-quotes": (0, b"{'a': 1}"),
    "rejected-invalid-utf8": (0, b'"\xc3\x28"'),
    "rejected-nan": (0, b"NaN"),
    "rejected-leading-zero": (0, b"012"),
    "rejected-two-documents": (0, b"{} {}"),
    "rejected-unterminated-comment": (1, b"/* {}"),
    "rejected-lone-surrogate": (0, b'"\\ud800"'),
}


def write(folder, files):
    path = CORPUS / folder
    shutil.rmtree(path, ignore_errors=True)
    path.mkdir(parents=True)
    for name, data in files.items():
        (path / name).write_bytes(data)


def main():
    requests = {name: bytes([0]) + data for name, data in PROCESS_REQUEST.items()}
    requests.update({name: bytes([flags]) + data for name, (flags, data) in PROCESS_REQUEST_FLAGGED.items()})
    write("ProcessRequest", requests)
    seeds = {name: json.dumps(doc, ensure_ascii=False).encode() for name, doc in SEEDS.items()}
    seeds.update(SEED_TEXTS)
    write("SeedLoader", seeds)
    write("Deserializer", {name: bytes([flags]) + text for name, (flags, text) in DESERIALIZER.items()})


if __name__ == "__main__":
    main()
