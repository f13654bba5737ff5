// The search of a DHCP server's lease file for an address, as
// "grep ADDRESS FILE" finds it, done in the process.
#pragma once

#include <cstddef>

// Lines of the lease file read at once; a longer line is searched in pieces.
constexpr size_t kLeaseChunk = 4096;

// The first line of the file that holds address as grep reads a pattern (a
// "." stands for any byte, and a longer address that begins with it matches
// too), in the form that fgets gave of grep's output: at most size - 1 bytes
// of the line and its line feed, NUL-terminated. False when no line holds
// it, or the file can't be read or holds a NUL byte. address is one that the
// callers' checks admit (digits, letters, ":" and "."); size is at most
// kLeaseChunk.
bool lanhost_lease_first_line(const char *address, const char *path, char *line, size_t size);
