#!/usr/bin/env python3
"""The launcher where no desktop answers, in a real pseudo-terminal (and, for scripts, a pipe).

    terminal_test.py <launcher> <scratch>

A product layout of its own (the launcher beside share/kestravine with a scripted install.sh),
no DISPLAY: the install offer and Return, the live output, the page's address on a line of its
own, Ctrl-C as the cancel with nothing left running, retry, the update offer's two keys, a failure
printed whole, the status cut to 20, 40 and 80 columns and redrawn after a resize, NO_COLOR and
TERM=dumb, and the plain lines and exit statuses of the automatic start without a terminal.
"""
import fcntl
import os
import pty
import re
import select
import shutil
import signal
import struct
import subprocess
import sys
import termios
import time
import unicodedata

launcher, scratch = sys.argv[1], os.path.abspath(sys.argv[2])
shutil.rmtree(scratch, ignore_errors=True)
product = os.path.join(scratch, "product")
share = os.path.join(product, "share", "kestravine")
os.makedirs(os.path.join(product, "bin"))
os.makedirs(share)
shutil.copy(launcher, os.path.join(product, "bin"))
launcher = os.path.join(product, "bin", os.path.basename(launcher))
open(os.path.join(share, "kestravine-9.9.9.tar.gz"), "w").close()
os.makedirs(os.path.join(scratch, "run"), mode=0o700)
SGR = re.compile(r"\x1b\[[0-9;]*m")
failures = []


def check(ok, what):
    print(("ok   " if ok else "FAIL ") + what)
    if not ok:
        failures.append(what)


def columns(text):
    return sum(0 if unicodedata.combining(c) else 2 if unicodedata.east_asian_width(c) in "WF" else 1
               for c in text)


def free_offset():
    import socket
    for _ in range(50):
        offset = 500 + int.from_bytes(os.urandom(2), "little") % 19000
        with socket.socket() as s:
            if s.connect_ex(("127.0.0.1", 5199 + offset)) != 0:
                return offset
    raise SystemExit("no free port")


def install_script(body):
    with open(os.path.join(share, "install.sh"), "w") as f:
        f.write(body)


def environment(home, **extra):
    env = {k: v for k, v in os.environ.items()
           if k not in ("DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM", "NO_COLOR",
                        "KESTRAVINE_LAUNCHER_AUTOSTART", "KESTRAVINE_NO_OPEN")}
    env.update(KESTRAVINE_HOME=home, ZORVEL_PORT_OFFSET=str(free_offset()), TERM="xterm",
               XDG_RUNTIME_DIR=os.path.join(scratch, "run"), PATH="/usr/bin:/bin")
    env.update(extra)
    return env


class Terminal:
    """The launcher on a pseudo-terminal of `width` columns."""

    def __init__(self, home, width=80, **extra):
        self.pid, self.fd = pty.fork()
        if self.pid == 0:
            os.execve(launcher, [launcher], environment(home, **extra))
        self.resize(width)
        self.raw = b""

    def resize(self, width):
        fcntl.ioctl(self.fd, termios.TIOCSWINSZ, struct.pack("HHHH", 24, width, 0, 0))

    def text(self):
        return self.raw.decode("utf-8", "replace")

    def expect(self, pattern, limit=30):
        end = time.time() + limit
        while time.time() < end:
            if re.search(pattern, SGR.sub("", self.text())):
                return True
            ready, _, _ = select.select([self.fd], [], [], 0.1)
            if ready:
                try:
                    self.raw += os.read(self.fd, 65536)
                except OSError:
                    break
        return bool(re.search(pattern, SGR.sub("", self.text())))

    def send(self, keys):
        os.write(self.fd, keys)

    def status(self, limit=30):
        end = time.time() + limit
        while time.time() < end:
            done, status = os.waitpid(self.pid, os.WNOHANG)
            if done:
                return os.waitstatus_to_exitcode(status)
            self.expect(r"(?!x)x", 0.1)
        os.kill(self.pid, signal.SIGKILL)
        return "hung"

    def status_lines(self):
        """Each drawing of the status line: what follows a carriage return and an erase."""
        return [part.split("\r")[0].split("\n")[0]
                for part in SGR.sub("", self.text()).split("\r\x1b[K")[1:] if part.strip()]


# A server for the product, started by the install in the product home. It notes its own pid
# before it answers: setsid may fork, so that "$!" names a process that has already gone.
SERVE = ("cd \"$KESTRAVINE_HOME/app\" && setsid python3 -c 'import http.server,os,sys\n"
         "open(sys.argv[2], \"w\").write(str(os.getpid()))\n"
         "class H(http.server.BaseHTTPRequestHandler):\n"
         "  def do_GET(s): s.send_response(200); s.end_headers()\n"
         "  def log_message(s,*a): pass\n"
         "http.server.HTTPServer((\"127.0.0.1\",5199+int(sys.argv[1])),H).serve_forever()' "
         "\"$ZORVEL_PORT_OFFSET\" \"$KESTRAVINE_HOME/server.pid\" </dev/null >/dev/null 2>&1 &\n")


def stop_server(home):
    try:
        os.kill(int(open(os.path.join(home, "server.pid")).read()), signal.SIGKILL)
    except (OSError, ValueError):
        pass


# 1. The install offer, Return, the live output, the address where no browser can be asked.
home = os.path.join(scratch, "home-install")
install_script("echo 第一行输出\nmkdir -p \"$KESTRAVINE_HOME/app\"\n" + SERVE + "echo 装好了\n")
t = Terminal(home)
check(t.expect(r"Kestravine会装在这台电脑上\r\n") and t.expect("按回车键安装并打开"), "install offer")
t.send(b"\r")
check(t.expect(r"第一行输出\r\n") and t.expect(r"装好了\r\n"), "live output")
check(t.expect(r"(\r\n|\x1b\[K)http://127\.0\.0\.1:\d+/home/\r\n"), "the address on a line of its own")
check(t.status() == 0, "exit 0 once the product answers")
stop_server(home)

# 2. Ctrl-C cancels the running install with its whole tree; Return retries; q leaves.
home = os.path.join(scratch, "home-cancel")
# A sleep of this run's own length: another run's leftovers must not count.
sleeper = f"sleep {40000 + os.getpid() % 10000}"
install_script(f"echo 开始\n{sleeper} & wait\n")
t = Terminal(home)
t.expect("按回车键安装并打开")
t.send(b"\r")
t.expect("开始")
t.send(b"\x03")
check(t.expect("停下了。什么都没改坏，再点一次可以重来。"), "Ctrl-C cancels")
gone = False
for _ in range(100):
    if subprocess.run(["pgrep", "-xf", sleeper], capture_output=True).returncode != 0:
        gone = True
        break
    time.sleep(0.1)
check(gone, "nothing of the cancelled install is left")
t.send(b"\r")
check(t.expect(r"按回车键再试一次[^\n]*\r\n(.|\n)*按回车键安装并打开"), "Return retries")
t.send(b"q")
check(t.status() == 0, "q leaves")
lflag = termios.tcgetattr(t.fd)[3]  # the pseudo-terminal's, seen from its master side
check(lflag & termios.ICANON and lflag & termios.ECHO, "the terminal's settings come back")

# 3. A failure and its details, whole.
home = os.path.join(scratch, "home-fail")
long_line = "很长的一行" * 30
install_script(f"echo 第一行\necho {long_line}\nexit 3\n")
t = Terminal(home, width=40)
t.expect("按回车键安装并打开")
t.send(b"\r")
# The exit may come before the command's last lines: they follow the failure then.
check(t.expect("没能装完（退出码 3）。多半是网络，或者这台电脑上已经有一份在跑。再试一次；不行就把下面的详情发给我。")
      and t.expect(re.escape(long_line)), "a failure and its details printed whole")
t.send(b"q")
t.status()

# 4. The status cut to the width in display columns, and redrawn after a resize; colours.
for width in (20, 40, 80):
    home = os.path.join(scratch, f"home-width-{width}")
    install_script("sleep 1\nexit 1\n")
    t = Terminal(home, width=width)
    t.expect("按回车键安装并打开")
    t.send(b"\r")
    t.expect("在装")
    drawn = t.status_lines()
    check(bool(drawn) and all(columns(s) <= width - 1 for s in drawn)
          and (width > 22 or drawn[-1].endswith("…")), f"status within {width} columns: {drawn[-1:]}")
    if width == 80:
        t.resize(20)
        os.kill(t.pid, signal.SIGWINCH)
        t.expect(r"\r\x1b\[K[^\r\n]*…", 10)
        check(columns(t.status_lines()[-1]) <= 19, f"redrawn at 20 columns: {t.status_lines()[-1:]}")
        check("\x1b[1m" in t.text(), "colours where the terminal has them")
    t.expect("没能装完")
    t.send(b"q")
    t.status()

for name, extra, wanted in (("NO_COLOR", {"NO_COLOR": "1"}, "no colour"),
                            ("TERM=dumb", {"TERM": "dumb"}, "plain lines")):
    home = os.path.join(scratch, "home-" + name.replace("=", "-"))
    install_script("echo 一行\nexit 1\n")
    t = Terminal(home, **extra)
    t.expect("按回车键安装并打开")
    t.send(b"\r")
    t.expect("没能装完")
    t.send(b"q")
    t.status()
    plain = "\x1b[" not in t.text() if name == "TERM=dumb" else not SGR.search(t.text())
    check(plain, f"{name}: {wanted}")

# 5. The update offer: s starts the installed version, Return updates.
for key, wanted in ((b"s", "Varnholt已经在这台电脑上了"), (b"\r", "在装")):
    home = os.path.join(scratch, "home-update-" + ("s" if key == b"s" else "return"))
    os.makedirs(os.path.join(home, "app"))
    with open(os.path.join(home, "app", "package.json"), "w") as f:
        f.write('{"version": "0.0.1", "scripts": {"zorvel:up": "exit 0"}}\n')
    install_script("exit 1\n")
    t = Terminal(home)
    check(t.expect("按回车键更新并打开；按 s 先打开现在的版本"), "the update offer names both keys")
    t.send(key)
    check(t.expect(wanted), f"update offer, {key!r}: {wanted}")
    t.send(b"\x1b")
    t.send(b"q")
    t.status()

# 6. One launcher per home across both front ends: a later launch for the home of a terminal
# launcher starts nothing and says where the first one runs.
home = os.path.join(scratch, "home-guard")
install_script("echo ran >>\"$KESTRAVINE_HOME/installs\"\n")
t = Terminal(home)
t.expect("按回车键安装并打开")
later = subprocess.run([launcher], env=environment(home, KESTRAVINE_LAUNCHER_AUTOSTART="1"),
                       stdin=subprocess.DEVNULL, capture_output=True, timeout=30)
check(later.returncode == 0 and "已经在另一个桌面上打开了（TERMINAL=/dev/" in later.stderr.decode()
      and not os.path.exists(os.path.join(home, "installs")), "a later launch says where the first runs")
t.send(b"q")
t.status()

# 7. No terminal: the automatic start writes plain lines; 0 answered, 1 failed, 2 interrupted.
for name, body, sig, expected in (("answers", "echo 装\nmkdir -p \"$KESTRAVINE_HOME/app\"\n" + SERVE, None, 0),
                                  ("fails", "echo 坏了\nexit 4\n", None, 1),
                                  ("interrupted", "echo 开始\nsleep 4444 & wait\n", signal.SIGINT, 2)):
    home = os.path.join(scratch, "home-pipe-" + name)
    install_script(body)
    run = subprocess.Popen([launcher], env=environment(home, KESTRAVINE_LAUNCHER_AUTOSTART="1"),
                           stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    if sig:
        # Sent once the install has said its first line.
        first = run.stdout.readline()
        while b"\xe5\xbc\x80\xe5\xa7\x8b" not in first and first:
            first = run.stdout.readline()
        run.send_signal(sig)
    out, _ = run.communicate(timeout=60)
    text = out.decode()
    check(run.returncode == expected and "\x1b" not in text and "按" not in text,
          f"no terminal, {name}: exit {run.returncode}, plain lines")
    if name == "answers":
        check(re.search(r"^http://127\.0\.0\.1:\d+/home/$", text, re.M) is not None, "no terminal: the address")
        stop_server(home)
    if name == "fails":
        check("坏了\n" in text and "没能装完（退出码 4）" in text,
              "no terminal: the failure with its details" + ("" if "坏了" in text else ": " + text))
subprocess.run(["pkill", "-f", "sleep 4444"])

print(f"{len(failures)} failed" if failures else "terminal: all passed")
sys.exit(1 if failures else 0)
