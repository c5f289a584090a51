'use strict';
// Starts the Varnholt server in the background and returns once it answers (or after a bounded
// wait). Run as "npm run -s zorvel:up"; an instance that already answers is left alone.
const fs = require('fs');
const path = require('path');
const { spawn } = require('child_process');
const common = require('./common');

const colour = !process.env.NO_COLOR;
const green = (t) => (colour ? `\x1b[32m${t}\x1b[0m` : t);
const yellow = (t) => (colour ? `\x1b[33m${t}\x1b[0m` : t);
const red = (t) => (colour ? `\x1b[31m${t}\x1b[0m` : t);

const readyWithinMs = 5000;
const pollEveryMs = 100;

function logTail(lines = 10) {
  try {
    return fs.readFileSync(common.logFile, 'utf8').trimEnd().split('\n').slice(-lines).join('\n');
  } catch {
    return '';
  }
}

// One line on what holds the port instead of us, and the ways out.
function portTakenBy(holder) {
  const port = common.port();
  if (holder.varnholt) {
    return `Port ${port} is taken by another Varnholt (another product home); stop that one ` +
      '("npm run -s zorvel:down" in its app folder) or choose another ZORVEL_PORT_OFFSET.';
  }
  const what = holder.status ? `it answered HTTP ${holder.status}` : 'it does not answer HTTP';
  return `Port ${port} is taken by another program (${what}); stop that program or choose ` +
    'another ZORVEL_PORT_OFFSET.';
}

// Polls until the page answers (in a way `accept` takes), the server process ends, or the
// deadline passes.
async function waitForAnswer(isRunning, accept = () => true) {
  const deadline = Date.now() + readyWithinMs;
  for (;;) {
    const answer = await common.probe(Math.max(100, Math.min(1000, deadline - Date.now())));
    if (answer && accept(answer)) return answer;
    if (!isRunning()) return 'exited';
    if (Date.now() >= deadline) return 'timeout';
    await common.sleep(pollEveryMs);
  }
}

async function main() {
  const url = common.homeUrl();
  // Before anything answers: an install by an older install.sh has no token yet.
  common.instanceToken();
  const recorded = common.readPid();

  if (recorded && common.isOurServer(recorded)) {
    // Running, perhaps still starting (a second "up" right after the first): wait for it
    // rather than start a rival that would only fail on the busy port.
    const answer = await waitForAnswer(() => common.alive(recorded));
    if (answer && typeof answer === 'object') {
      console.log(green(`Varnholt is already running at ${url} (pid ${recorded}).`));
      return 0;
    }
    if (answer === 'timeout') {
      console.log(yellow(`Varnholt (pid ${recorded}) is running but not answering at ${url} yet.`));
      return 0;
    }
  }

  let holder = await common.probe();
  if (!holder && (await common.portTaken())) {
    // Something takes connections without answering HTTP, or has only just begun listening:
    // ask once more before calling it foreign.
    holder = (await common.probe()) || { status: null, ours: false, varnholt: false };
  }
  if (holder) {
    if (holder.ours) {
      console.log(green(`Varnholt already answers at ${url}; not starting another copy.`));
      return 0;
    }
    console.error(red(portTakenBy(holder)));
    return 1;
  }

  fs.mkdirSync(common.logDir, { recursive: true });
  fs.mkdirSync(common.runDir, { recursive: true });
  const logFd = fs.openSync(common.logFile, 'a');
  fs.writeSync(logFd, `${new Date().toISOString()} [up] starting ${path.join(common.appDir, 'server.js')}\n`);
  // Whoever ran us reads our output through a pipe until it closes: the server gets none of
  // our descriptors, only /dev/null and the log, and its own session so that it outlives the
  // caller, its terminal and its process group.
  const child = spawn(process.execPath, [path.join(common.appDir, 'server.js')], {
    cwd: common.appDir,
    detached: true,
    stdio: ['ignore', logFd, logFd],
    env: { ...process.env, ZORVEL_PORT_OFFSET: String(common.portOffset()) },
  });
  fs.closeSync(logFd);
  let exited = false;
  child.on('exit', () => {
    exited = true;
  });
  child.unref();
  console.log(`Starting Varnholt on ${url} (pid ${child.pid}) ...`);

  // Only our own answer counts: whatever else took the port meanwhile makes our server exit.
  const answer = await waitForAnswer(() => !exited, (a) => a.ours);
  if (answer === 'exited') {
    // Lost a race with another start? Then that one answers now.
    const other = await common.probe();
    if (other && other.ours) {
      console.log(green(`Varnholt already answers at ${url}.`));
      return 0;
    }
    if (other) {
      console.error(red(portTakenBy(other)));
      return 1;
    }
    console.error(red(`Varnholt stopped right after starting. The last lines of ${common.logFile}:`));
    console.error(logTail());
    return 1;
  }
  if (answer === 'timeout') {
    console.log(yellow(`Varnholt is still starting; it will answer at ${url} shortly.`));
    return 0;
  }
  console.log(green(`Varnholt is running at ${url}`));
  console.log(`Log: ${common.logFile}`);
  return 0;
}

main().then(
  (code) => process.exit(code),
  (err) => {
    console.error(red(`zorvel:up failed: ${err.message}`));
    process.exit(1);
  },
);
