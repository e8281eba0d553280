#!/usr/bin/env python3
# Writes the seed corpus of fuzz_slot_calls (corpus/slot_calls/): the call sequences a runtime
# really makes, in the target's program encoding (see slot_calls_fuzz.cpp).
import os
import struct

here = os.path.join(os.path.dirname(os.path.abspath(__file__)), "corpus", "slot_calls")
blob = struct.pack("<iii", 2, 0, 200)


def create(): return b"\x00"
def destroy(): return b"\x01"
def comm(state): return b"\x02" + bytes([state])
def init(data=blob): return b"\x03" + struct.pack("<h", len(data)) + data
def poll(count, flag=0): return b"\x04" + struct.pack("<i", count) + bytes([flag]) * 32
def refchange(count): return b"\x05" + struct.pack("<i", count) + bytes([3]) * 32
def command(text): return b"\x07" + bytes([len(text)]) + text.encode()
def write_int(ch, v): return b"\x08" + struct.pack("<ii", ch, 1) + struct.pack("<i", v)
def write_double(ch, v): return b"\x08" + struct.pack("<ii", ch, 2) + struct.pack("<d", v)
def write_text(ch, t): return b"\x08" + struct.pack("<ii", ch, 3) + bytes([len(t)]) + t.encode()
def write_raw(ch, type): return b"\x08" + struct.pack("<iiq", ch, type, -1)
def cleanup(): return b"\x09"


start = create() + comm(1) + init() + refchange(19) + poll(19)
seeds = {
    "startup": start + poll(19) + poll(19, 3),
    "writes": start + write_int(3, 100) + write_double(5, 120.0) + write_text(18, "abcdef") +
    poll(19),
    "commands": start + command("REFLESH()") + poll(19) + command("SetNTPFreq(3)") +
    command("ModVncPwd(a,b,c)") + poll(19),
    "restart": start + cleanup() + init() + poll(19) + cleanup() + destroy() + create() + init(),
    "early": create() + poll(3) + cleanup() + cleanup() + refchange(-1) + poll(-1) + init() +
    poll(-5),
    "lost-link": start + comm(2) + poll(19) + comm(1) + poll(19) + destroy(),
    "extremes": start + write_int(2**31 - 1, 1) + write_text(2**31 - 1, "1") +
    write_int(-2**31, 1) + write_raw(2**31 - 1, 2**31 - 1) + write_raw(3, -2**31) + poll(19),
}
os.makedirs(here, exist_ok=True)
for name, data in seeds.items():
    with open(os.path.join(here, name), "wb") as f:
        f.write(data)
