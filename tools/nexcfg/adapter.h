// adapter.h - a vnet's host-only adapter on the host: its netifup daemon
// and its address; shared by the adapter and service commands.
#pragma once

#include <string>

namespace nexcfg {

// Starts netifup when it is not running, gives the adapter its address and
// brings it up; an adapter that is up already is left as it is. Throws a
// Failure when the library cannot.
void BringAdapterUp(const std::string &vnet);
// Takes the adapter down and stops netifup, also when the interface is
// gone already. Throws a Failure when the library cannot.
void BringAdapterDown(const std::string &vnet);

}  // namespace nexcfg
