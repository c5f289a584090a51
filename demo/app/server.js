'use strict';
// The Varnholt web application: one page, served on the loopback interface only.
const fs = require('fs');
const http = require('http');
const common = require('./common');
const { version } = require('./package.json');

fs.mkdirSync(common.logDir, { recursive: true });
fs.mkdirSync(common.runDir, { recursive: true });
// The server keeps its own log even when started by hand from a terminal; up.js also points
// stdout and stderr here, which catches crash traces.
const log = fs.createWriteStream(common.logFile, { flags: 'a' });
function note(text) {
  log.write(`${new Date().toISOString()} [${process.pid}] ${text}\n`);
}

const startedAt = new Date();
const port = common.port();
// This home's identity; made here when an install by an older install.sh left none.
const instance = common.instanceToken();

function escapeHtml(text) {
  return String(text).replace(/[&<>"']/g, (c) => `&#${c.charCodeAt(0)};`);
}

function homePage() {
  const started = startedAt.toLocaleString('zh-CN', { hour12: false });
  return `<!doctype html>
<html lang="zh-CN">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<title>Varnholt</title>
<style>
  :root { color-scheme: light dark; }
  body { margin: 0; min-height: 100vh; display: grid; place-items: center;
         font-family: system-ui, "PingFang SC", "Noto Sans CJK SC", "WenQuanYi Micro Hei", sans-serif;
         background: linear-gradient(160deg, #e9f2ef, #c9ddd6); color: #1d2b27; }
  main { background: rgba(255, 255, 255, 0.85); padding: 2.5rem 3rem; border-radius: 18px;
         box-shadow: 0 12px 40px rgba(20, 50, 40, 0.18); max-width: 32rem; }
  h1 { margin: 0 0 0.5rem; font-size: 2.4rem; letter-spacing: 0.02em; }
  .dot { display: inline-block; width: 0.7rem; height: 0.7rem; border-radius: 50%;
         background: #2fa36b; margin-right: 0.5rem; vertical-align: middle; }
  p { line-height: 1.7; margin: 0.4rem 0; }
  dl { display: grid; grid-template-columns: auto 1fr; gap: 0.3rem 1rem; margin: 1.2rem 0 0;
       font-size: 0.9rem; color: #4a5d57; }
  dt { font-weight: 600; }
  dd { margin: 0; font-family: ui-monospace, monospace; }
  @media (prefers-color-scheme: dark) {
    body { background: linear-gradient(160deg, #16211e, #0d1513); color: #e4efeb; }
    main { background: rgba(30, 42, 38, 0.9); }
    dl { color: #a9bcb5; }
  }
</style>
</head>
<body>
<main>
  <h1>Varnholt</h1>
  <p><span class="dot"></span>正在这台电脑上本地运行。</p>
  <p>数据不会离开本机，关掉启动器也不影响它继续工作。</p>
  <dl>
    <dt>地址</dt><dd>${escapeHtml(`http://127.0.0.1:${port}/home/`)}</dd>
    <dt>版本</dt><dd>${escapeHtml(version)}</dd>
    <dt>启动于</dt><dd>${escapeHtml(started)}</dd>
  </dl>
</main>
</body>
</html>
`;
}

function notFoundPage() {
  return `<!doctype html>
<html lang="zh-CN"><head><meta charset="utf-8"><title>Varnholt · 404</title></head>
<body><p>这里没有页面。去 <a href="/home/">首页</a> 看看。</p></body></html>
`;
}

function send(req, res, status, headers, body) {
  res.writeHead(status, { 'Cache-Control': 'no-store', ...headers });
  res.end(req.method === 'HEAD' ? undefined : body);
  note(`${req.method} ${req.url} ${status}`);
}

const server = http.createServer((req, res) => {
  const html = { 'Content-Type': 'text/html; charset=utf-8' };
  if (req.method !== 'GET' && req.method !== 'HEAD') {
    send(req, res, 405, { Allow: 'GET, HEAD', 'Content-Type': 'text/plain; charset=utf-8' }, 'method not allowed\n');
    return;
  }
  const pathname = new URL(req.url, 'http://localhost').pathname;
  if (pathname === '/home/') {
    // Whoever finds a Varnholt on this port can tell whether it is the one of their home.
    send(req, res, 200, { ...html, 'X-Varnholt-Instance': instance }, homePage());
  } else if (pathname === '/' || pathname === '/home') {
    send(req, res, 302, { Location: '/home/', 'Content-Type': 'text/plain; charset=utf-8' }, 'see /home/\n');
  } else {
    send(req, res, 404, html, notFoundPage());
  }
});

function removePidFile() {
  // Only our own record: a second server that lost the race for the port must not delete it.
  if (common.readPid() === process.pid) {
    try {
      fs.unlinkSync(common.pidFile);
    } catch {
      // Already gone.
    }
  }
}

function stop(signal) {
  note(`stopping on ${signal}`);
  removePidFile();
  server.close();
  log.end(() => process.exit(0));
}
process.on('SIGTERM', () => stop('SIGTERM'));
process.on('SIGINT', () => stop('SIGINT'));
// Detached from any terminal; a stray hangup must not take the application down.
process.on('SIGHUP', () => note('ignoring SIGHUP'));

server.on('error', (err) => {
  note(`cannot listen on 127.0.0.1:${port}: ${err.message}`);
  log.end(() => process.exit(1));
});

server.listen(port, '127.0.0.1', () => {
  // Written before any request is served, so whoever sees the page answer also finds the pid.
  fs.writeFileSync(common.pidFile, `${process.pid}\n`);
  note(`Varnholt ${version} listening on ${common.homeUrl()}`);
});
