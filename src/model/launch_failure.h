#pragma once

#include <string>

namespace kestravine {

// The failure when the install or the service start could not be started at all: no process,
// pipe, descriptor or thread to be had. It says what could not be started, the system's reason in
// Chinese with the error's name, and what the user can do; never an exit status nobody returned.
// Stateless; any thread.
namespace launch_failure {

enum class Step { install, serviceStart };

std::string text(Step step, int error);

}  // namespace launch_failure
}  // namespace kestravine
