# For scripts that run the launcher on a port of their own (sourced, not run).
#
# free_offset: prints a ZORVEL_PORT_OFFSET whose port (5199 + offset) nobody listens on now.
free_offset() {
  local offset
  for _ in $(seq 1 50); do
    offset=$((RANDOM % 19000 + 500))
    (exec 3<>"/dev/tcp/127.0.0.1/$((5199 + offset))") 2>/dev/null || break
  done
  echo "$offset"
}
