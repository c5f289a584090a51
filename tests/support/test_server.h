#pragma once

#include <functional>

// The local web application as the probe sees it: an HTTP server (cpp-httplib) on 127.0.0.1, on
// a port of the launcher's range, listening for the whole test process from the first call on.
// Only GET /home/ gets the status a test scripts; any other address gets 404.
//
// Threading: called from the test thread; requests are answered on the server's own threads.
namespace kestravine::testing::server {

int port();
// From now on the n-th request for /home/ (from 1) is answered with statusFor(n); 0 stalls it
// for good, longer than a probe may wait. Counts requests afresh.
void serve(std::function<int(int)> statusFor);
int requests();

}  // namespace kestravine::testing::server
