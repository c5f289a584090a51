#!/usr/bin/env bash
# Prints a uid that no account names and no process runs as, for a test that acts as another
# user: a process limit then counts only what the test itself starts as that user.
set -euo pipefail
taken=$(ps -A -o ruid= -o euid= | tr -s ' ' '\n' | sort -u)
for uid in $(shuf -i 61000-64999 -n 200); do
  getent passwd "$uid" >/dev/null && continue
  grep -qx "$uid" <<<"$taken" && continue
  echo "$uid"
  exit 0
done
echo "unused_uid.sh: no free uid between 61000 and 64999" >&2
exit 1
