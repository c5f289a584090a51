'use strict';
// Stops the background Varnholt server recorded in .zorvel/run/server.pid.
const fs = require('fs');
const common = require('./common');

const stopWithinMs = 5000;

async function main() {
  const pid = common.readPid();
  if (!pid || !common.isOurServer(pid)) {
    if (pid) fs.rmSync(common.pidFile, { force: true });
    console.log('Varnholt is not running.');
    return 0;
  }
  process.kill(pid, 'SIGTERM');
  const deadline = Date.now() + stopWithinMs;
  while (common.alive(pid) && Date.now() < deadline) await common.sleep(50);
  if (common.alive(pid)) {
    console.log(`Varnholt (pid ${pid}) did not stop in time; killing it.`);
    process.kill(pid, 'SIGKILL');
    while (common.alive(pid)) await common.sleep(20);
  }
  // A server that was killed could not remove its own record.
  fs.rmSync(common.pidFile, { force: true });
  console.log(`Varnholt stopped (pid ${pid}).`);
  return 0;
}

main().then(
  (code) => process.exit(code),
  (err) => {
    console.error(`zorvel:down failed: ${err.message}`);
    process.exit(1);
  },
);
