// cli_output.h: the one way the command-line program writes a file.
#pragma once

#include <cstdio>
#include <functional>
#include <string>

// Writes `target` through `write`, which puts the bytes on the stream it is handed and returns
// 0, 1 when it was cancelled, or a library status. A new name or a regular file (also behind a
// symbolic link, which stays) is written to a temporary file beside it and renamed into place
// only when complete; anything else that exists, such as a device or a pipe, is written in place,
// and so is standard output, named "-" or /dev/stdout.
// Nothing this run did not create is ever removed. Returns an exit status; messages name
// `target`.
int write_output(const std::string& target, const std::function<int(std::FILE*)>& write);

// Whether `target` names standard output ("-" or /dev/stdout).
bool is_standard_output(const std::string& target);

// Where the line that sums up a finished command goes: standard output, or standard error when
// `target` is standard output and holds the picture.
std::FILE* summary_stream(const std::string& target);
