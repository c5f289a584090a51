#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace kestravine {

// Who answers TCP connections to 127.0.0.1 on a port, as far as this user can see in /proc: the
// listening socket that the kernel would hand such a connection to, the user who made it and,
// where the user may look, the process that holds it.
//
// The product is a process of this user that belongs to the product home: its executable, its
// working directory or one of its arguments lies in the home, or it carries the mark of a step
// that a launcher ran for the home, or one of its ancestors does (a server a product script
// started). Every such tie counts: taking the product for a stranger would stop the launcher
// from doing its one job. Another user's socket never is the product. What cannot be tied to a
// process of a known user (root's socket, a process in another pid namespace or hidden by
// hidepid) is `unknown`.
//
// Threading: a value type; of() runs on any thread and blocks while it reads /proc.
struct PortOwner {
  enum class Kind {
    nobody,     // no socket in view takes connections to 127.0.0.1 on the port
    product,    // a process of this user that belongs to the product home
    foreign,    // a process of this user that does not
    otherUser,  // a socket of another user (not root)
    unknown,    // root's socket, or one of this user that no process in view holds
  };

  Kind kind = Kind::nobody;
  pid_t pid = -1;       // product and foreign: the process that holds the socket
  std::string name;     // product and foreign: its command name; otherUser: the user's login name
  uid_t uid = 0;        // all but nobody: who made the socket
  std::string address;  // all but nobody: the address it is bound to ("127.0.0.1", "::", ...)

  // `productHome` as Ctx::canonicalHome() gives it.
  static PortOwner of(int port, const std::string& productHome);
};

// What ties one process to a product home, as /proc tells it; empty where it cannot be read.
struct ProcessTies {
  std::string executable;
  std::string workingDirectory;
  std::vector<std::string> arguments;  // the command line, the program name first
  std::string environment;             // as /proc/<pid>/environ holds it
};

// Whether the process belongs to the canonical product home `home`: its executable or working
// directory lies in it, or an argument names a path in it (relative ones taken from the working
// directory, "--option=path" counted too), or it carries a step mark of the home. Stateless; any
// thread; resolves symbolic links in arguments through the file system.
bool belongsToHome(const ProcessTies& process, const std::string& home);

}  // namespace kestravine
