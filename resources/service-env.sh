# Read by the login shell that starts the product's services, through BASH_ENV, after the
# profile files. Those may have set PATH afresh (Debian's /etc/profile does), so the product's
# own node and npm go first again. Then the user's own BASH_ENV, if there was one, is restored
# for whatever this shell starts, and run here as bash would have run it.
if [ -n "${KESTRAVINE_NODE_BIN:-}" ]; then
  PATH="$KESTRAVINE_NODE_BIN:$PATH"
  export PATH
fi
unset KESTRAVINE_NODE_BIN
if [ -n "${KESTRAVINE_USER_BASH_ENV+set}" ]; then
  BASH_ENV=$KESTRAVINE_USER_BASH_ENV
  export BASH_ENV
  unset KESTRAVINE_USER_BASH_ENV
  if [ -n "$BASH_ENV" ]; then . "$BASH_ENV"; fi
else
  unset BASH_ENV
fi
