#pragma once

#include "support/virtual_platform.h"

namespace kestravine::testing {

// The virtual platform installed for the whole test program; its thread is the test thread.
VirtualPlatform& platform();

}  // namespace kestravine::testing
