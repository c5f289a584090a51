// Starts one program and reports when its top-level window with a given title was mapped, for
// bench/startup.sh. Event-driven (MapNotify on the root window) rather than polling with xdotool,
// whose --sync waits half a second between looks and would swamp a figure of tens of ms.
//
//   startup_probe --title T [--stdin FILE] [--smaps FILE] [--hold-ms N | --until-exit]
//                 [--timeout-ms N] -- CMD...
//
// --hold-ms N: once the window is mapped, wait N ms, read VmHWM again, then stop the program.
// --until-exit: let the program end by itself (after its window appeared or not).
// --smaps FILE: copy /proc/<pid>/smaps to FILE the moment the window is mapped (where the
// memory is), for bench/startup_memory.sh.
// Prints one line: shown_ms exit_ms exit_status hwm_at_shown_kb hwm_after_hold_kb maxrss_kb,
// "-" where a figure does not apply or could not be had. Exit 0 unless the probe itself failed.
#define _GNU_SOURCE
#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>
#include <xcb/xcb.h>

#ifndef SYS_pidfd_open
#define SYS_pidfd_open 434
#endif

static double nowMs(void) {
  struct timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return (double)ts.tv_sec * 1e3 + (double)ts.tv_nsec / 1e6;
}

static long vmHwmKb(pid_t pid) {
  char path[64];
  snprintf(path, sizeof path, "/proc/%d/status", (int)pid);
  FILE* f = fopen(path, "r");
  if (!f) return -1;
  char line[256];
  long kb = -1;
  while (fgets(line, sizeof line, f)) {
    if (strncmp(line, "VmHWM:", 6) == 0) {
      kb = strtol(line + 6, NULL, 10);
      break;
    }
  }
  fclose(f);
  return kb;
}

// Copies /proc/<pid>/smaps to `to`; best effort (a figure missing there is seen in the file).
static void copySmaps(pid_t pid, const char* to) {
  char path[64];
  snprintf(path, sizeof path, "/proc/%d/smaps", (int)pid);
  FILE* in = fopen(path, "r");
  FILE* out = fopen(to, "w");
  char buf[65536];
  size_t n;
  while (in && out && (n = fread(buf, 1, sizeof buf, in)) > 0) fwrite(buf, 1, n, out);
  if (in) fclose(in);
  if (out) fclose(out);
}

static xcb_atom_t atom(xcb_connection_t* c, const char* name) {
  xcb_intern_atom_reply_t* r =
      xcb_intern_atom_reply(c, xcb_intern_atom(c, 0, (uint16_t)strlen(name), name), NULL);
  xcb_atom_t a = r ? r->atom : XCB_ATOM_NONE;
  free(r);
  return a;
}

// Whether the window's _NET_WM_NAME (what Qt and GTK set) or else WM_NAME equals the title.
static int titled(xcb_connection_t* c, xcb_window_t w, xcb_atom_t netName, xcb_atom_t utf8,
                  const char* title) {
  xcb_get_property_cookie_t cookies[2] = {
      xcb_get_property(c, 0, w, netName, utf8, 0, 1024),
      xcb_get_property(c, 0, w, XCB_ATOM_WM_NAME, XCB_GET_PROPERTY_TYPE_ANY, 0, 1024)};
  int match = 0;
  for (int i = 0; i < 2; ++i) {
    xcb_get_property_reply_t* r = xcb_get_property_reply(c, cookies[i], NULL);
    if (r && !match) {
      int len = xcb_get_property_value_length(r);
      match = len == (int)strlen(title) && memcmp(xcb_get_property_value(r), title, len) == 0;
    }
    free(r);
  }
  return match;
}

static volatile pid_t child = 0;

// Interrupted: the program is in a process group of its own, so it would not get the signal.
static void onSignal(int sig) {
  if (child > 0) kill(-child, SIGKILL);
  _exit(128 + sig);
}

static void usage(void) {
  fprintf(stderr,
          "usage: startup_probe --title T [--stdin FILE] [--smaps FILE] [--hold-ms N | --until-exit] "
          "[--timeout-ms N] -- CMD...\n");
  exit(2);
}

int main(int argc, char** argv) {
  const char* title = NULL;
  const char* input = NULL;
  const char* smaps = NULL;
  long holdMs = -1;
  long timeoutMs = 15000;
  int i = 1;
  for (; i < argc; ++i) {
    if (strcmp(argv[i], "--") == 0) {
      ++i;
      break;
    } else if (strcmp(argv[i], "--title") == 0 && i + 1 < argc) {
      title = argv[++i];
    } else if (strcmp(argv[i], "--stdin") == 0 && i + 1 < argc) {
      input = argv[++i];
    } else if (strcmp(argv[i], "--smaps") == 0 && i + 1 < argc) {
      smaps = argv[++i];
    } else if (strcmp(argv[i], "--hold-ms") == 0 && i + 1 < argc) {
      holdMs = strtol(argv[++i], NULL, 10);
    } else if (strcmp(argv[i], "--until-exit") == 0) {
      holdMs = -1;
    } else if (strcmp(argv[i], "--timeout-ms") == 0 && i + 1 < argc) {
      timeoutMs = strtol(argv[++i], NULL, 10);
    } else {
      usage();
    }
  }
  if (!title || i >= argc) usage();

  xcb_connection_t* c = xcb_connect(NULL, NULL);
  if (xcb_connection_has_error(c)) {
    fprintf(stderr, "startup_probe: cannot connect to the X display\n");
    return 1;
  }
  // The program must not inherit the probe's connection.
  fcntl(xcb_get_file_descriptor(c), F_SETFD, FD_CLOEXEC);
  xcb_window_t root = xcb_setup_roots_iterator(xcb_get_setup(c)).data->root;
  xcb_atom_t netName = atom(c, "_NET_WM_NAME");
  xcb_atom_t utf8 = atom(c, "UTF8_STRING");
  uint32_t mask = XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY;
  // Checked (a round trip): the mask is in force before the program starts, so no map is missed.
  if (xcb_request_check(c, xcb_change_window_attributes_checked(c, root, XCB_CW_EVENT_MASK, &mask))) {
    fprintf(stderr, "startup_probe: cannot watch the root window\n");
    return 1;
  }

  int inputFd = -1;
  if (input && (inputFd = open(input, O_RDONLY | O_CLOEXEC)) < 0) {
    fprintf(stderr, "startup_probe: cannot open %s: %s\n", input, strerror(errno));
    return 1;
  }

  double start = nowMs();
  pid_t pid = fork();
  if (pid < 0) {
    perror("startup_probe: fork");
    return 1;
  }
  if (pid == 0) {
    // A process group of its own, so stopping it also stops anything it started.
    setpgid(0, 0);
    if (inputFd >= 0) dup2(inputFd, 0);
    execvp(argv[i], argv + i);
    fprintf(stderr, "startup_probe: cannot run %s: %s\n", argv[i], strerror(errno));
    _exit(127);
  }
  setpgid(pid, pid);
  child = pid;
  struct sigaction sa;
  memset(&sa, 0, sizeof sa);
  sa.sa_handler = onSignal;
  sigaction(SIGINT, &sa, NULL);
  sigaction(SIGTERM, &sa, NULL);
  sigaction(SIGHUP, &sa, NULL);
  int pidFd = (int)syscall(SYS_pidfd_open, pid, 0);

  double shown = -1, exited = -1, holdUntil = -1, killAt = -1;
  long hwmShown = -1, hwmHold = -1, maxRss = -1;
  int status = -1;
  int stopping = 0;
  // Windows mapped before their title was set: looked at again when a name property changes.
  xcb_window_t pending[64];
  int pendingCount = 0;
  double deadline = start + (double)timeoutMs;

  while (exited < 0) {
    double now = nowMs();
    if (!stopping && now >= deadline) {
      stopping = 1;
      kill(-pid, SIGTERM);
      killAt = now + 2000;
    }
    if (!stopping && holdUntil >= 0 && now >= holdUntil) {
      hwmHold = vmHwmKb(pid);
      stopping = 1;
      kill(-pid, SIGTERM);
      killAt = now + 2000;
    }
    if (stopping && killAt >= 0 && now >= killAt) {
      kill(-pid, SIGKILL);
      killAt = -1;
    }

    double next = stopping ? (killAt >= 0 ? killAt : now + 50) : deadline;
    if (holdUntil >= 0 && !stopping && holdUntil < next) next = holdUntil;
    int wait = (int)(next - now) + 1;
    // Without a pidfd (old kernel) the exit is noticed by looking every millisecond.
    if (pidFd < 0 && wait > 1) wait = 1;
    struct pollfd fds[2] = {{xcb_get_file_descriptor(c), POLLIN, 0}, {pidFd, POLLIN, 0}};
    poll(fds, pidFd >= 0 ? 2 : 1, wait);

    xcb_generic_event_t* ev;
    while ((ev = xcb_poll_for_event(c)) != NULL) {
      double at = nowMs();
      uint8_t type = ev->response_type & 0x7f;
      xcb_window_t candidate = XCB_WINDOW_NONE;
      if (type == XCB_MAP_NOTIFY) {
        xcb_map_notify_event_t* m = (xcb_map_notify_event_t*)ev;
        candidate = m->window;
        if (shown < 0 && !titled(c, candidate, netName, utf8, title) && pendingCount < 64) {
          uint32_t props = XCB_EVENT_MASK_PROPERTY_CHANGE;
          xcb_change_window_attributes(c, candidate, XCB_CW_EVENT_MASK, &props);
          pending[pendingCount++] = candidate;
          candidate = XCB_WINDOW_NONE;
        }
      } else if (type == XCB_PROPERTY_NOTIFY) {
        xcb_property_notify_event_t* p = (xcb_property_notify_event_t*)ev;
        for (int k = 0; k < pendingCount; ++k) {
          if (pending[k] == p->window && (p->atom == netName || p->atom == XCB_ATOM_WM_NAME) &&
              titled(c, p->window, netName, utf8, title)) {
            candidate = p->window;
          }
        }
      } else if (type == XCB_UNMAP_NOTIFY || type == XCB_DESTROY_NOTIFY) {
        xcb_window_t gone = type == XCB_UNMAP_NOTIFY ? ((xcb_unmap_notify_event_t*)ev)->window
                                                     : ((xcb_destroy_notify_event_t*)ev)->window;
        for (int k = 0; k < pendingCount; ++k) {
          if (pending[k] == gone) pending[k--] = pending[--pendingCount];
        }
      }
      if (candidate != XCB_WINDOW_NONE && shown < 0) {
        shown = at - start;
        hwmShown = vmHwmKb(pid);
        if (smaps) copySmaps(pid, smaps);
        if (holdMs >= 0) holdUntil = at + (double)holdMs;
      }
      free(ev);
    }
    xcb_flush(c);
    if (xcb_connection_has_error(c)) {
      fprintf(stderr, "startup_probe: lost the X display\n");
      kill(-pid, SIGKILL);
      break;
    }

    struct rusage ru;
    int st;
    pid_t got = wait4(pid, &st, WNOHANG, &ru);
    if (got == pid) {
      exited = nowMs() - start;
      maxRss = ru.ru_maxrss;
      status = WIFEXITED(st) ? WEXITSTATUS(st) : 128 + WTERMSIG(st);
      // Leftovers of the program's group (none expected) are not left running.
      kill(-pid, SIGKILL);
    }
  }

  // The exit time only counts when the program ended by itself.
  char text[6][32];
  for (int k = 0; k < 6; ++k) strcpy(text[k], "-");
  if (shown >= 0) snprintf(text[0], sizeof text[0], "%.1f", shown);
  if (exited >= 0 && !stopping) snprintf(text[1], sizeof text[1], "%.1f", exited);
  if (status >= 0) snprintf(text[2], sizeof text[2], "%d", status);
  if (hwmShown >= 0) snprintf(text[3], sizeof text[3], "%ld", hwmShown);
  if (hwmHold >= 0) snprintf(text[4], sizeof text[4], "%ld", hwmHold);
  if (maxRss >= 0) snprintf(text[5], sizeof text[5], "%ld", maxRss);
  printf("%s %s %s %s %s %s\n", text[0], text[1], text[2], text[3], text[4], text[5]);
  xcb_disconnect(c);
  return 0;
}
