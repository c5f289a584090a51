#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "process/port_owner.h"

namespace kestravine {

// The texts that say who answers on the product's port and why the product did not come up.
// Stateless functions; any thread.
namespace port_report {

// The failure when a program that is not the product holds the port: it names the port and
// the program (its name and pid, or its user) and how to get out. None for any other owner.
std::optional<std::string> refusal(int port, const PortOwner& owner);

// One line for the details on who holds the port. `answered`: the port has just answered a
// request, so a port with no listener in view is answered from elsewhere (a forwarding rule).
std::string seen(int port, const PortOwner& owner, bool answered);

// The line for a service start that ended with `status`, not 0.
std::string startStatus(std::int32_t status);

// The heading and the last `count` lines (cleaned, empty ones left out) of the text file at
// `path`, read from its last 64 KiB at most; nothing when it cannot be read or holds no line.
std::vector<std::string> tail(const std::string& path, std::size_t count);

}  // namespace port_report
}  // namespace kestravine
