// What a host's bridge port means: its store path, its kind, and whether a
// bridged WAN connection serves it.
#pragma once

#include <cstdint>

#include "lanhost_table.h"

// Writes nothing for a port name that begins with none of the known prefixes.
void wrapperZns_lanhost_get_l2Interface(const char *brPortName, char *layer2Interface, char *interfacetype,
                                        int32_t *devtype);
// 1 when a bridged WAN connection is bound to the host's port, else 0.
int wrapperZns_lanhost_l2Interface_is_bridge(lhost *host);
