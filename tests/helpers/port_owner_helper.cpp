// Tells who answers on a port as the user running it sees it, for tests that look from another
// user's side: "port_owner_helper <port> <home>" prints "<kind> <uid> <name>".
#include <cstdio>
#include <cstdlib>
#include <string>

#include "process/port_owner.h"

int main(int argc, char** argv) {
  if (argc != 3) return 64;
  const auto owner = kestravine::PortOwner::of(std::atoi(argv[1]), argv[2]);
  const char* kinds[] = {"nobody", "product", "foreign", "otherUser", "unknown"};
  std::printf("%s %u %s\n", kinds[static_cast<int>(owner.kind)], owner.uid, owner.name.c_str());
  return 0;
}
