// cli_gif_write.h: the commands that write GIF files (encode, resave) and the GIF output of
// quantize.
#pragma once

#include <qimg/qimg.h>

#include <string>

class ArgList;

int command_encode(ArgList& args);
int command_resave(ArgList& args);

// Writes one indexed image as a still GIF: its colour map as the global table, the map's first
// transparent entry as the transparent index; `monitor` (may be null) follows the rows. An exit
// status; messages name `path`.
int write_indexed_gif(const std::string& path, const qIIndexImage& image, qIMonitor* monitor);
