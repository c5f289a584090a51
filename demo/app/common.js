'use strict';
// What server.js, up.js and down.js agree on: the port, where the run files live, and the
// token by which this home's server tells itself apart from any other Varnholt.
const crypto = require('crypto');
const fs = require('fs');
const path = require('path');

const appDir = __dirname;
const stateDir = path.join(appDir, '.zorvel');
const logDir = path.join(stateDir, 'logs');
const runDir = path.join(stateDir, 'run');
const logFile = path.join(logDir, 'monitor.log');
const pidFile = path.join(runDir, 'server.pid');
const instanceFile = path.join(stateDir, 'instance');
const instanceHeader = 'x-varnholt-instance';
const basePort = 5199;

// Read the offset the way the launcher does, so both always name the same port: a decimal
// integer from 0 to 19999, anything else counts as 0.
function portOffset(value = process.env.ZORVEL_PORT_OFFSET) {
  if (typeof value !== 'string' || !/^\+?[0-9]+$/.test(value)) return 0;
  const n = Number(value);
  return n < 20000 ? n : 0;
}

function port() {
  return basePort + portOffset();
}

function homeUrl() {
  return `http://127.0.0.1:${port()}/home/`;
}

function readPid() {
  try {
    const pid = Number(fs.readFileSync(pidFile, 'utf8').trim());
    return Number.isInteger(pid) && pid > 0 ? pid : null;
  } catch {
    return null;
  }
}

// A process that has exited but is not yet reaped still takes signals; it counts as gone. An
// orphan's reaper (init, or a container's first process) may take its time about it.
function alive(pid) {
  try {
    process.kill(pid, 0);
  } catch (e) {
    return e.code === 'EPERM';
  }
  try {
    const stat = fs.readFileSync(`/proc/${pid}/stat`, 'utf8');
    const state = stat.slice(stat.lastIndexOf(')') + 2, stat.lastIndexOf(')') + 3);
    return state !== 'Z' && state !== 'X';
  } catch (e) {
    return e.code !== 'ENOENT' || !fs.existsSync('/proc/self');
  }
}

// A recorded pid may have been reused by an unrelated process after a crash or reboot; only a
// node process running this app's server.js counts as ours. Where /proc is missing, trust it.
function isOurServer(pid) {
  if (!alive(pid)) return false;
  let cmdline;
  try {
    cmdline = fs.readFileSync(`/proc/${pid}/cmdline`, 'utf8').split('\0');
  } catch (e) {
    return e.code !== 'ENOENT';
  }
  return cmdline.includes(path.join(appDir, 'server.js'));
}

// The instance file holds a random token and the app folder it was made for. Another home
// of the same user may share our port offset, and a home copied by hand carries our file
// along: only a token made for this very folder is ours. Null when there is none such.
function readInstance() {
  let text;
  try {
    text = fs.readFileSync(instanceFile, 'utf8');
  } catch {
    return null;
  }
  const cut = text.indexOf('\n');
  if (cut < 0 || !text.endsWith('\n')) return null;
  const token = text.slice(0, cut);
  // The folder comes last and whole, so that any character a path may hold survives.
  const madeFor = text.slice(cut + 1, -1);
  return /^[0-9a-f]{32}$/.test(token) && madeFor === appDir ? token : null;
}

// This home's token, made on first use when the install predates tokens or the home is a
// copy. Several starts at once all end up with one token: the file appears by a link, which
// only one of them can win, and the others read the winner's.
function instanceToken() {
  const known = readInstance();
  if (known) return known;
  fs.mkdirSync(stateDir, { recursive: true });
  const token = crypto.randomBytes(16).toString('hex');
  const draft = `${instanceFile}.${process.pid}.draft`;
  fs.rmSync(draft, { force: true });
  // A new file, so the mode holds from its first byte: private to the user (0600).
  fs.writeFileSync(draft, `${token}\n${appDir}\n`, { mode: 0o600, flag: 'wx' });
  try {
    fs.linkSync(draft, instanceFile);
    return token;
  } catch (e) {
    if (e.code !== 'EEXIST') throw e;
    const winner = readInstance();
    if (winner) return winner;
    // What is there was made for another folder, or is damaged: ours replaces it.
    fs.renameSync(draft, instanceFile);
    return token;
  } finally {
    fs.rmSync(draft, { force: true });
  }
}

// One GET of /home/: resolves to the status code, whether the answer is some Varnholt's (the
// instance header, or the page of a Varnholt too old to send one) and whether it is this
// home's own (the header carries our token); null when nothing answers HTTP.
function probe(timeoutMs = 1000) {
  const http = require('http');
  const token = readInstance();
  return new Promise((resolve) => {
    const req = http.get(homeUrl(), { timeout: timeoutMs }, (res) => {
      const instance = res.headers[instanceHeader];
      let body = '';
      res.setEncoding('utf8');
      res.on('data', (chunk) => {
        if (body.length < 65536) body += chunk;
      });
      res.on('end', () =>
        resolve({
          status: res.statusCode,
          ours: token !== null && instance === token,
          varnholt: instance !== undefined || body.includes('<title>Varnholt</title>'),
        }));
      res.on('error', () => resolve(null));
    });
    req.on('timeout', () => req.destroy(new Error('timeout')));
    req.on('error', () => resolve(null));
  });
}

// Whether anything accepts a connection on the port, HTTP or not.
function portTaken(timeoutMs = 1000) {
  const net = require('net');
  return new Promise((resolve) => {
    const socket = net.connect({ host: '127.0.0.1', port: port(), timeout: timeoutMs });
    socket.once('connect', () => {
      socket.destroy();
      resolve(true);
    });
    socket.once('timeout', () => {
      socket.destroy();
      resolve(false);
    });
    socket.once('error', () => resolve(false));
  });
}

const sleep = (ms) => new Promise((resolve) => setTimeout(resolve, ms));

module.exports = {
  appDir, stateDir, logDir, runDir, logFile, pidFile, instanceFile, instanceHeader,
  portOffset, port, homeUrl, readPid, alive, isOurServer, readInstance, instanceToken,
  probe, portTaken, sleep,
};
