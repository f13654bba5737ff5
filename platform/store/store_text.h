// The store's text form, shared by the flash file, the defaults and znsUtil:
// one "FULLPATH.PARAM=VALUE" line per parameter, and in the flash file a
// "FULLPATH." line before each object so that objects without parameters
// survive too. Values: decimal integers, booleans 0 or 1, MAC as
// "aa:bb:cc:dd:ee:ff", text with "\\", "\n" and "\r" escaped by a backslash.
#pragma once

#include <string>
#include <vector>

#include "region.h"

namespace zns {

std::string value_to_text(const ParamLayout *p, const void *field);
// Parses text for parameter p into v. 0, or -1 with *why set.
int text_to_value(const ParamLayout *p, const char *text, ParamValue *v, const char **why);

// Appends the object (obj, ia) and everything below it, instances in rising order.
void tree_dump(Region *r, const ObjectLayout *obj, zns_ia_t ia, bool object_lines, std::string *out);
// Applies a text to the region under the caller's lock, adding objects as
// they appear. 0, or -1 with the first bad line in *bad_line (nothing is
// undone: a load goes into an empty region).
int tree_load(Region *r, const char *text, std::string *bad_line);

int read_file(const char *path, std::string *out);
// Writes a new file beside path and renames it over path. 0 or -1.
int write_file_atomic(const char *path, const std::string &data);

} // namespace zns
