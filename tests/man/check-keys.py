#!/usr/bin/env python3
"""Usage: check-keys.py PAGE SOURCE_DIR

Collects every key the configuration reader accepts, from the key lists it
checks objects against and the keys it reads, and fails when the rendered
page does not name one of them."""
import os
import re
import subprocess
import sys

page, source_dir = sys.argv[1], sys.argv[2]

# expectOnlyKeys({"a", "b"}) lists; member("a"), optionalMember("a"),
# booleanOr("a", ...), integerOr("a", ...) reads.
KEY_LIST = re.compile(r'expectOnlyKeys\(\s*\{([^}]*)\}', re.S)
KEY_READ = re.compile(r'\b(?:member|optionalMember|has|booleanOr|integerOr)\(\s*"([^"]+)"')
STRING = re.compile(r'"([^"\\]*)"')

keys = set()
sources = sorted(os.path.join(folder, name) for folder, _, names in os.walk(source_dir)
                 for name in names if name.endswith('.cpp'))
for path in sources:
    with open(path, encoding='utf-8') as source:
        text = source.read()
    for key_list in KEY_LIST.findall(text):
        keys.update(STRING.findall(key_list))
    keys.update(KEY_READ.findall(text))

if len(keys) < 10:
    sys.exit(f'only {len(keys)} keys found in {source_dir}: the reader changed shape, fix this test')

rendered = subprocess.run(['man', '-l', page], check=True, capture_output=True, text=True,
                          env=dict(os.environ, MANWIDTH='80')).stdout
rendered = re.sub(r'.\x08', '', rendered)  # drop overstrike bold and underline
missing = sorted(k for k in keys if not re.search(r'(?<![\w.])' + re.escape(k) + r'(?!\w)', rendered))
if missing:
    sys.exit(f'{page} does not name these configuration keys: {", ".join(missing)}')
print(f'{len(keys)} configuration keys, all named in {os.path.basename(page)}')
