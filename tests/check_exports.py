#!/usr/bin/env python3
"""Fails unless the shared library exports exactly the public API listed by the generator."""
import subprocess
import sys

nm, library, expected_path = sys.argv[1:4]
out = subprocess.run([nm, "-D", "--defined-only", library], check=True, capture_output=True, text=True).stdout
exported = set()
for line in out.splitlines():
    parts = line.split()
    if len(parts) == 3 and parts[1] in "TDBRWVui":
        exported.add(parts[2].split("@")[0])
with open(expected_path) as f:
    expected = {l.strip() for l in f if l.strip()}
extra = sorted(exported - expected)
missing = sorted(expected - exported)
for name in extra:
    print(f"exported but not public: {name}")
for name in missing:
    print(f"public but not exported: {name}")
print(f"{len(exported)} exported symbols, {len(expected)} public names")
sys.exit(1 if extra or missing else 0)
