#!/usr/bin/env bash
# Usage: render-pages.sh PAGE...
# Renders each page as a reader's man would; any warning fails.
set -uo pipefail
failed=0
for page in "$@"; do
  warnings=$(MANWIDTH=80 man --warnings -l "$page" 2>&1 >/dev/null)
  status=$?
  if [ $status -ne 0 ] || [ -n "$warnings" ]; then
    echo "$page: status $status"
    echo "$warnings"
    failed=1
  fi
done
[ $failed -eq 0 ] && echo "$# pages render without warnings"
exit $failed
