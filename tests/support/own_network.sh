#!/usr/bin/env bash
# Runs a test program in a network of its own, with nothing but a loopback interface, so that
# what it expects of a fixed port (nobody answering there) holds whatever else runs on this
# machine: the demo product started by scripts/run.sh listens on 127.0.0.1:5199. Where the
# machine allows no network namespace, runs it as it is; the test then holds the port itself or
# says why it skips.
for flags in "--net" "--net --map-root-user"; do
  # shellcheck disable=SC2086
  if unshare $flags true 2>/dev/null; then
    exec unshare $flags bash -c 'ip link set lo up && exec "$@"' bash "$@"
  fi
done
exec "$@"
