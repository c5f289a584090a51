#!/usr/bin/env bash
# Runs a test program as the first process of a PID namespace of its own, with its own /proc,
# so that it may choose which pid the next process gets (/proc/sys/kernel/ns_last_pid) without
# touching the machine's. Where the machine allows no such namespace, runs it as it is; the
# tests that need one then skip and say why.
for flags in "--pid --fork --mount-proc" "--pid --fork --mount-proc --map-root-user"; do
  # shellcheck disable=SC2086
  if unshare $flags true 2>/dev/null; then
    exec unshare $flags "$@"
  fi
done
exec "$@"
