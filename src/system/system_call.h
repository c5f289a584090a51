#pragma once

// The launcher's own system calls go through SYSTEM_CALL(name)(arguments): the system's in the
// launcher, a test's stand-in where a test compiles the calling file with
// KESTRAVINE_MOCK_SYSTEM_CALLS (tests/support/system_call_mock.h), so that the test can make any
// one of them fail, as a full disk, a folder another user made or a signal would.
#ifdef KESTRAVINE_MOCK_SYSTEM_CALLS
#include "support/system_call_mock.h"
#define SYSTEM_CALL(name) ::kestravine::mock::name
#else
#define SYSTEM_CALL(name) ::name
#endif
