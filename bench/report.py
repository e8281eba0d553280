#!/usr/bin/env python3
"""Prints the benchmark table from the outputs of bench/run.sh: ratios against the baselines of
the same run, instruction counts (callgrind) as the stable figure, times for context."""
import glob
import json
import os
import re
import sys

out, armel = sys.argv[1], (sys.argv[2] if len(sys.argv) > 2 else "")


def read(name):
    path = os.path.join(out, name)
    return open(path, errors="replace").read() if os.path.exists(path) else ""


def fields(text, prefix):
    for line in text.splitlines():
        if line.startswith(prefix + " "):
            return dict(kv.split("=", 1) for kv in line.split()[1:] if "=" in kv)
    return {}


# Instructions per call, by case, from the callgrind dumps.
instr = {}
for path in glob.glob(os.path.join(out, "cg.*")):
    text = open(path, errors="replace").read()
    name = re.search(r"^desc: Trigger: Client Request: (\S+)", text, re.M)
    total = re.search(r"^summary: (\d+)", text, re.M)
    if name and total:
        instr[name.group(1)] = int(total.group(1))
count_txt = read("count.txt")
rounds, allocs, logs = {}, {}, {}
for line in count_txt.splitlines():
    if line.startswith("count "):
        parts = line.split()
        f = dict(kv.split("=", 1) for kv in parts[2:])
        rounds[parts[1]] = int(f["rounds"])
        allocs[parts[1]] = float(f["allocs_per_call"])
        logs[parts[1]] = float(f["logs_per_call"])


def ir(case):
    return instr[case] / rounds[case] if case in instr and case in rounds else float("nan")


wall = {}
try:
    for b in json.load(open(os.path.join(out, "wall.json")))["benchmarks"]:
        scale = {"ns": 1e-3, "us": 1.0, "ms": 1e3}[b["time_unit"]]
        wall[b["name"]] = (b["real_time"] * scale, b["cpu_time"] * scale)
except (OSError, ValueError, KeyError):
    pass


def us(name):
    return wall.get(name, (float("nan"),) * 2)


rows = []


def row(what, ratio, count, context):
    rows.append((what, ratio, count, context))


poll, base = ir("poll"), ir("poll_baseline")
row("1 cached poll (20 ch) / 19 pushes", f"{poll / base:.2f}x Ir",
    f"{poll:,.0f} / {base:,.0f} Ir; {allocs.get('poll', -1):.0f} allocs",
    f"cpu {us('BM_Poll')[1]:.2f} / {us('BM_PollBaseline')[1]:.2f} us")
ref, floor = ir("refresh"), ir("refresh_floor")
row("2 full refresh / system floor", f"{ref / floor:.2f}x Ir",
    f"{ref:,.0f} / {floor:,.0f} Ir; {allocs.get('refresh', -1):.0f} / "
    f"{allocs.get('refresh_floor', -1):.0f} allocs; {logs.get('refresh', 0):.0f} log records",
    f"cpu {us('BM_Refresh')[1]:.0f} / {us('BM_RefreshFloor')[1]:.0f} us")
for case, name in (("cmd_backlight_on", "BACKLIGHTON()"), ("cmd_write_buzzer", "WEXA_WRITE(3=1)"),
                   ("cmd_mem_use", "GetMemUse(11)")):
    bench = "BM_Command/" + {"cmd_backlight_on": "backlight_on", "cmd_write_buzzer": "write_buzzer",
                             "cmd_mem_use": "mem_use"}[case]
    real = us(bench)[0]
    row(f"3 {name}", f"{1e6 / real:,.0f}/s" if real == real and real > 0 else "n/a",
        f"{ir(case):,.0f} Ir; {allocs.get(case, -1):.1f} allocs; {logs.get(case, 0):.0f} log records",
        f"wall {real:,.1f} us")
lc = us("BM_LifeCycle/iterations:50/real_time")
row("4 life cycle (init+poll+cleanup)", f"{lc[0] / 5e3:.3f} of 5 ms", "", f"wall {lc[0] / 1e3:.2f} ms")

w = fields(read("worker.txt"), "worker")
wcg = read("worker-cg.txt")
wc = fields(wcg, "worker")
worker_ir = 0
for path in glob.glob(os.path.join(out, "worker-cg.*")):
    m = re.search(r"^summary: (\d+)", open(path, errors="replace").read(), re.M)
    if m:
        worker_ir += int(m.group(1))
passes = float(wc.get("passes", "nan")) + 2.5  # the 500 ms settling time ran collected too
per_pass = worker_ir / passes if passes == passes else float("nan")
# A core retires at least 1e9 instructions a second here (poll: Ir / cpu time).
poll_cpu = us("BM_Poll")[1]
rate = poll / (poll_cpu * 1e-6) if poll_cpu == poll_cpu and poll_cpu > 0 else 1e9
row("5 worker at rest, one 200 ms pass", f"{100 * per_pass / (rate * 0.2):.6f} % core (Ir)",
    f"{per_pass:,.0f} Ir per pass",
    f"thread cpu {w.get('share_pct', '?')} % vs bare sleeper {w.get('bare_share_pct', '?')} %; "
    f"join {w.get('join_ms', '?')} ms")

ntp = read("ntp.txt")
bare = fields(ntp, "ntp")
execs = [dict(kv.split("=", 1) for kv in l.split()[1:]) for l in ntp.splitlines()
         if l.startswith("ntp servers=")]
for e in execs:
    server = e["servers"].split("(")[1].split(",")[0]
    try:
        ratio = f"{float(e['exec_ms']) / float(bare['bare_ms']):.0f}x"
    except (KeyError, ValueError, ZeroDivisionError):
        ratio = "n/a"
    row(f"6 ExecNTP(st), server {server}", ratio, f"failures {e['failures']}",
        f"{e['exec_ms']} ms / bare exchange {bare.get('bare_ms', '?')} ms")

for line in read("settings.txt").splitlines():
    if line.startswith("settings "):
        st = dict(kv.split("=", 1) for kv in line.split()[1:])
        row(f"8 settings write, Qt {st['qt']} / the baseline commit's",
            f"{float(st['driver_ms']) / float(st['base_ms']):.2f}x", f"median of {st['rounds']}",
            f"{st['driver_ms']} ms / {st['base_ms']} ms")

fp = fields(read("footprint.txt"), "footprint")
host_size = os.path.getsize(os.path.join(out, "driver-host.so"))
armel_size = os.path.getsize(os.path.join(out, "driver-armel.so")) if armel else 0
row("7 stripped driver", f"{host_size / 1024:.0f} KiB x86-64",
    f"{armel_size / 1024:.0f} KiB armel" if armel else "no armel build", "")
row("7 per device", f"{fp.get('threads_per_device', '?')} thread",
    f"RSS first {fp.get('first_device_kb', '?')} KiB, each further {fp.get('per_more_device_kb', '?')} KiB",
    "")
ch = fields(read("churn.txt"), "churn")
row(f"7 devices made and destroyed, {ch.get('devices', '?')} after 200",
    f"heap {ch.get('heap_growth_bytes_per_device', '?')} B/device",
    f"RSS +{ch.get('rss_growth_kb', '?')} KiB", "")

width = [max(len(r[i]) for r in rows) for i in range(4)]
head = ("case", "ratio / figure", "instructions, allocations", "times (context only)")
width = [max(w, len(h)) for w, h in zip(width, head)]
print(" | ".join(h.ljust(w) for h, w in zip(head, width)))
print("-+-".join("-" * w for w in width))
for r in rows:
    print(" | ".join(c.ljust(w) for c, w in zip(r, width)))

# Where an ExecNTP goes: the system calls of the first one, in time order, from the trace.
EVENTS = [
    (r'openat\(.*"/tmp/ping.sh", O_WRONLY', "probe: script written"),
    (r'execve\("/usr/bin/ping".*"([\d.]+)"\]', "probe: ping {0}"),
    (r"exit_group", None),
    (r'openat\(.*"/etc/(resolv.conf|hosts)"', "resolution: /etc/{0} read"),
    (r"sendto\(\d+, \"\\33.*htons\(123\)", "exchange: request sent"),
    (r"recvfrom\(\d+, .*= 48$", "exchange: reply received"),
    (r'execve\("/bin/sh", \["sh", "-c", "date', "clock: date -s started"),
]
trace = read("ntp.strace").splitlines()
start = next((i for i, l in enumerate(trace) if "/tmp/ping.sh" in l), None)
if start is not None:
    t0 = float(trace[start].split()[1])
    print("\nOne ExecNTP(st) as system calls (strace; ms from the probe script's creation):")
    pings = {}
    for line in trace[start:]:
        parts = line.split(None, 2)
        if len(parts) < 3:
            continue
        pid, t, call = parts[0], float(parts[1]), parts[2]
        for pattern, label in EVENTS:
            m = re.search(pattern, call)
            if not m:
                continue
            if label is None:
                if pid in pings:
                    print(f"  {1e3 * (t - t0):8.1f}  probe: ping {pings.pop(pid)} ended")
            elif label.startswith("probe: ping"):
                pings[pid] = m.group(1)
                print(f"  {1e3 * (t - t0):8.1f}  {label.format(m.group(1))}")
            else:
                print(f"  {1e3 * (t - t0):8.1f}  {label.format(*m.groups())}")
            break
        if "date -s" in call and "execve(\"/bin/sh\"" in call:
            break
