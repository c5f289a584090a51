'use strict';
// What server.js, up.js and down.js agree on: the port and where the run files live.
const fs = require('fs');
const path = require('path');

const appDir = __dirname;
const stateDir = path.join(appDir, '.zorvel');
const logDir = path.join(stateDir, 'logs');
const runDir = path.join(stateDir, 'run');
const logFile = path.join(logDir, 'monitor.log');
const pidFile = path.join(runDir, 'server.pid');
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

// One GET of /home/: resolves to the status code and whether the page is Varnholt's, or null
// when nothing answers.
function probe(timeoutMs = 1000) {
  const http = require('http');
  return new Promise((resolve) => {
    const req = http.get(homeUrl(), { timeout: timeoutMs }, (res) => {
      let body = '';
      res.setEncoding('utf8');
      res.on('data', (chunk) => {
        if (body.length < 65536) body += chunk;
      });
      res.on('end', () => resolve({ status: res.statusCode, ours: body.includes('<title>Varnholt</title>') }));
      res.on('error', () => resolve(null));
    });
    req.on('timeout', () => req.destroy(new Error('timeout')));
    req.on('error', () => resolve(null));
  });
}

const sleep = (ms) => new Promise((resolve) => setTimeout(resolve, ms));

module.exports = {
  appDir, stateDir, logDir, runDir, logFile, pidFile,
  portOffset, port, homeUrl, readPid, alive, isOurServer, probe, sleep,
};
