#!/usr/bin/env python3
"""Usage: check-options.py PAGE DAEMON

Fails when the rendered manual page does not name an option the daemon's
--help lists."""
import os
import re
import subprocess
import sys

page, daemon = sys.argv[1], sys.argv[2]

help_text = subprocess.run([daemon, '--help'], check=True, capture_output=True, text=True, timeout=30).stdout
options = set(re.findall(r'(?<![\w-])--[a-z][a-z-]*', help_text))
if len(options) < 10:
    sys.exit(f'only {len(options)} options in the daemon\'s --help: its format changed, fix this test')

rendered = subprocess.run(['man', '-l', page], check=True, capture_output=True, text=True,
                          env=dict(os.environ, MANWIDTH='80')).stdout
rendered = re.sub(r'.\x08', '', rendered)  # drop overstrike bold and underline
rendered = rendered.replace('\u2010', '-').replace('\u2212', '-')
missing = sorted(o for o in options if not re.search(re.escape(o) + r'(?![\w-])', rendered))
if missing:
    sys.exit(f'{page} does not describe these options: {", ".join(missing)}')
print(f'{len(options)} options, all described in {os.path.basename(page)}')
